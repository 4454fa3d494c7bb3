// Which group is at work, its round, and how long all will still take; on standard error.
#pragma once

#include <chrono>
#include <string>

namespace velmora_bench {

class Progress {
public:
    void plan(double seconds) { planned_ += seconds; }
    void begin(const std::string& group, double seconds);  // of the plan
    void round(int k, int n);                              // the k-th of n begins, k from 1
    void end();                                            // of the group

private:
    void show(const std::string& text) const;
    double secondsLeft() const;

    std::string group_;
    double planned_ = 0, done_ = 0;  // seconds of the plan, of groups that have ended
    double present_ = 0, part_ = 0;  // of this group: seconds of the plan, and how much is done
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

}  // namespace velmora_bench
