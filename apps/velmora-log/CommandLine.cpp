// Every option and its words, and how a run begins.
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <map>

#include "apps/log/Severity.h"
#include "apps/velmora-log/ExitCode.h"
#include "apps/velmora-log/Options.h"
#include "apps/velmora-log/Run.h"

namespace velmora_log {
namespace {

constexpr const char* about =
    "Shows what the Velmora driver logs, keeps it in a file, and tells how punctual the stream "
    "is.\n"
    "The driver logs when its settings say Debug=enable, or Debug=debug for more.";

constexpr const char* remarks =
    R"(Filters rule what is shown. A file that is written gets every line, and the figures count every
line, but for --since and --until, which bound them too.

TIME is 17:02, 17:02:09 or 17:02:09.25, of any day, or with "03-05 " or "2026-03-05 " in front. It
is compared with when a line was heard, or with what the line says where nobody noted that.

A file read is one that --write made, a redirected --json, or what velmora-play --driver-log wrote.

Each line is shown with the time at which it was heard; control characters in it as \x1b. Lines and
figures go to standard output, everything else to standard error. Figures come at the end, and
)";

constexpr const char* examples = R"(
Examples:
  velmora-log
  velmora-log --level warning
  velmora-log --write stream.log --plot stream.svg
  velmora-log --seconds 60 --json
  velmora-log --read stream.log --word resend --since 17:02

Exit codes:
)";

std::string footer(const std::string& askingKey) {
    std::string text = remarks;
    text += (askingKey.empty() ? std::string("with --figures") : "at " + askingKey) +
            " as they stand.\n" + examples;
    for (const ExitMeaning& row : exitMeanings) {
        text += "  " + std::to_string(row.code) + "  " + row.meaning + "\n";
    }
    text.pop_back();
    return text;
}

// A range takes NaN, which is neither below nor above it.
std::string isNumber(const std::string& text) {
    return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
}

// One command line: the options it fills.
class CommandLine {
public:
    explicit CommandLine(const std::string& askingKey);
    CLI::App& app() { return app_; }
    Options options;

private:
    void addFilters();
    void addOutputs();
    void addBounds();
    // An option whose text `read` takes, or complains about by the words it gives.
    template <class Read>
    CLI::Option& add(const char* names, const char* words, const char* type, Read read) {
        return *app_.add_option_function<std::string>(names, read, words)->type_name(type);
    }

    CLI::App app_{about, "velmora-log"};
};

CommandLine::CommandLine(const std::string& askingKey) {
    app_.footer(footer(askingKey));
    app_.set_version_flag("--version", VELMORA_RELEASE);
    app_.allow_windows_style_options(false);
    app_.get_formatter()->column_width(34);
    addFilters();
    addOutputs();
    addBounds();
}

void CommandLine::addFilters() {
    Filter& filter = options.filter;
    add("--level", "only from this severity on: error, warning, info, debug, 0 to 7", "LEVEL",
        [&](const std::string& text) {
            filter.level = readSeverity(text);
            if (!filter.level) {
                throw CLI::ValidationError(
                    "--level",
                    text + " is no severity; one is error, warning, info, debug, or 0 to 7");
            }
        });
    app_.add_option("--word", filter.words, "only lines with this text; several: with each")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    app_.add_option("--without", filter.without,
                    "no lines with this text; several: with none of them")
        ->type_name("TEXT")
        ->allow_extra_args(false);
    add("--regex", "only lines in which this regular expression is found", "REGEX",
        [&](const std::string& text) {
            std::string error;
            filter.pattern = Pattern::read(text, error);
            if (!filter.pattern) throw CLI::ValidationError("--regex", error);
        });
    const auto addTime = [&](const char* name, const char* words, std::optional<TimeMark>& mark) {
        add(name, words, "TIME", [name, &mark](const std::string& text) {
            mark = TimeMark::read(text);
            if (!mark) {
                throw CLI::ValidationError(name, text +
                                                     " is no time; one is 17:02, 17:02:09 or "
                                                     "\"2026-03-05 17:02:09\"");
            }
        });
    };
    addTime("--since", "only lines from then on", filter.since);
    addTime("--until", "only lines until then, the end of that minute or second", filter.until);
    app_.add_flag("--trace", options.showsTrace,
                  "shows the packet trace too, a line for each record");
    app_.add_flag("--quiet", options.quiet, "no lines, the figures alone");
}

void CommandLine::addOutputs() {
    app_.add_flag("--json", options.json, "for programs: a JSON object a line, the trace's too");
    static const std::map<std::string, Colour> colours = {
        {"auto", Colour::automatic}, {"always", Colour::always}, {"never", Colour::never}};
    add("--color", "auto (a terminal, NO_COLOR not set), always or never", "WHEN",
        [this](const std::string& text) {
            const auto at = colours.find(text);
            if (at == colours.end()) {
                throw CLI::ValidationError("--color", text + " is none of auto, always, never");
            }
            options.colour = at->second;
        });
    app_.add_option("--write", options.writePath, "adds every line heard to this file")
        ->type_name("FILE");
    app_.add_option("--plot", options.plotPath, "draws how punctual the stream was, as SVG")
        ->type_name("FILE");
    app_.add_option("--figures", options.figuresEvery, "the figures every so many seconds too")
        ->check(CLI::Range(0.1, 1e9))
        ->check(isNumber)
        ->type_name("SECONDS");
}

void CommandLine::addBounds() {
    auto* const read =
        app_.add_option("--read", options.readPath, "reads this file instead of listening")
            ->type_name("FILE");
    app_.add_flag("--follow", options.follows, "waits for what is added to the file that is read")
        ->needs(read);
    app_.add_option("--seconds", options.seconds, "ends after so long; without, at Ctrl-C")
        ->check(CLI::Range(0.0, 1e9))
        ->check(isNumber)
        ->type_name("N");
    app_.add_option("--lines", options.lines, "ends after so many lines were shown")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 60))
        ->type_name("N");
    app_.add_option("--port", options.port, "another port than the driver's; 0: any that is free")
        ->capture_default_str()
        ->type_name("PORT")
        ->excludes(read);
}

}  // namespace

int run(const std::vector<std::string>& arguments, Context& context) {
    CommandLine line(context.askingKey);
    try {
        line.app().parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return line.app().exit(error, context.out, context.talk) == 0 ? exitDone : exitUsage;
    }
    return velmora_console::runToItsEnd(
        context.out, context.talk, {exitFile, exitFault}, [&]() -> int {
            const Options& options = line.options;
            return options.readPath.empty() ? listen(context, options) : readFile(context, options);
        });
}

}  // namespace velmora_log
