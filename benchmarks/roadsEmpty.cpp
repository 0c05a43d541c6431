// A program that does nothing but link what the daemon links: its start-up is part of the daemon's floor.
int main() {
    return 0;
}
