// A small table of how far a road of ours is from its floor: the least that could do the same. Both are timed in turn
// in the same run, round by round, and the medians over the rounds are printed, so that a busy machine slows both
// alike:
//
//     row                                          ours        floor    ratio      aim
//     one 2-byte sample into an open record     31.2 ns       2.5 ns    12.5x   <= 14x
//
// A table informs; it never fails a run.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

// Keeps the compiler from dropping or hoisting the work behind `value`.
template <typename Value>
inline void KeepAlive(Value& value) {
    asm volatile("" : : "r"(&value) : "memory");
}

class RoadTable {
  public:
    struct Row {
        std::string name;
        double ours;   // nanoseconds per operation, median over the rounds
        double floor;  // as above
        double aim;    // largest ratio we want to see; 0 for none
        double Ratio() const { return floor > 0 ? ours / floor : 0; }
    };

    explicit RoadTable(int rounds = 31) : m_rounds(rounds) {}

    // Times `ours` and `floor` in alternating rounds. Each is called `perRound` times a round and does one operation a
    // call. Whatever needs undoing between rounds is done by `prepare`, outside the clock, before each of the two.
    template <typename Ours, typename Floor, typename Prepare>
    const Row& Measure(const std::string& name, int perRound, double aim, Ours&& ours, Floor&& floor,
                       Prepare&& prepare) {
        std::vector<double> oursTimes;
        std::vector<double> floorTimes;
        for (int round = -1; round < m_rounds; ++round) {
            prepare();
            const double oursTime = TimeRound(perRound, ours);
            prepare();
            const double floorTime = TimeRound(perRound, floor);
            if (round >= 0) {  // the first round only warms up
                oursTimes.push_back(oursTime);
                floorTimes.push_back(floorTime);
            }
        }
        m_rows.push_back({name, Median(oursTimes), Median(floorTimes), aim});
        return m_rows.back();
    }
    template <typename Ours, typename Floor>
    const Row& Measure(const std::string& name, int perRound, double aim, Ours&& ours, Floor&& floor) {
        return Measure(name, perRound, aim, ours, floor, [] {});
    }

    void Print(std::FILE* out = stdout) const {
        int width = 20;
        for (const Row& row : m_rows) {
            width = std::max(width, static_cast<int>(row.name.size()));
        }
        std::fprintf(out, "%-*s  %12s  %12s  %8s  %9s\n", width, "row", "ours", "floor", "ratio", "aim");
        for (const Row& row : m_rows) {
            char aim[32] = "-";
            if (row.aim > 0) {
                std::snprintf(aim, sizeof(aim), "<= %.3gx", row.aim);
            }
            std::fprintf(out, "%-*s  %9.1f ns  %9.1f ns  %7.2fx  %9s\n", width, row.name.c_str(), row.ours, row.floor,
                         row.Ratio(), aim);
        }
    }
    const std::vector<Row>& rows() const { return m_rows; }

  private:
    template <typename Work>
    static double TimeRound(int perRound, Work& work) {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < perRound; ++i) {
            work();
        }
        const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
        return time.count() / perRound;
    }
    static double Median(std::vector<double>& times) {
        const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
        std::nth_element(times.begin(), middle, times.end());
        return *middle;
    }

    int m_rounds;
    std::vector<Row> m_rows;
};
