// What becomes of each line: it is kept in the file, counted, and shown if the filter lets it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "apps/log/Figures.h"
#include "apps/log/StreamReader.h"
#include "apps/velmora-log/LineFile.h"
#include "apps/velmora-log/Options.h"

namespace velmora_log {

class Session {
public:
    Session(Context& context, const Options& options);  // throws Stop where a file cannot be had

    void take(const Line& line);
    // To the screen and into the file. False where standard output takes nothing any more.
    bool flush();
    bool isDone() const { return options_.lines && shown_ >= *options_.lines; }
    bool hasHeard() const { return hasHeard_; }  // any line, whatever --since and --until say

    // The figures so far, and the plot, where one is wanted. A plot that cannot be drawn yet is
    // said once and ends nothing.
    void showFiguresSoFar();
    // The last of it; gives the exit code. Says all that could not be written.
    int finish();

private:
    struct Program {
        int number = 0;  // in the order in which they were heard
        std::unique_ptr<StreamReader> reader;
    };

    Program& programOf(std::uint16_t port);
    void count(const Line& line, Program& program);
    void show(const Line& line, const Program& program);
    bool showFigures();  // false where the plot cannot be written
    void say(const std::string& path, const std::string& sentence);

    Context& context_;
    const Options& options_;
    const bool colours_;
    LineFile file_;
    bool hasHeard_ = false;
    bool fileWasTold_ = false, plotWasTold_ = false;
    Figures figures_;
    std::map<std::uint16_t, Program> programs_;
    std::uint64_t shown_ = 0;
};

}  // namespace velmora_log
