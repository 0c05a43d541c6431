// The roads through the daemon, measured on its real binary in a private world, each beside its floor.
#include "roadTable.h"

int main() {
    RoadTable table;
    table.Print();
}
