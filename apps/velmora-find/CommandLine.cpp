// Every option and its words, and how a run begins.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/FinderModule.h"
#include "apps/velmora-find/Options.h"
#include "apps/velmora-find/StreamLog.h"

namespace velmora_find {
namespace {

constexpr const char* about =
    "Shows which Velmora targets are on the network and what they tell, changes their settings,\n"
    "sends them files, and looks for the cause when one is not found.";

constexpr const char* manner =
    R"(ADDRESS is what "list" shows: fe80::1%eth0, or fe80::1%3 with the interface's number, or fe80::1
alone: each interface is asked then. Another port than 19642: [fe80::1%eth0]:19700 or
fe80::1%eth0,19700. The name of a target will do as well, if only one target has it.

Results go to standard output, everything else to standard error. What a target tells is shown with
control characters as \x1b or \u{202e}. "velmora-find COMMAND --help" tells more of one command.

Examples:
  velmora-find list
  velmora-find info fe80::1%eth0
  velmora-find settings "My DAC"
  velmora-find set "My DAC" "Buffer length" 40 --keep
  velmora-find send "My DAC" 0 update.bin
  velmora-find watch --seconds 60 --json
  velmora-find doctor

Exit codes:
)";

constexpr const char* setManner = R"(VALUE, by the kind of the setting that "settings" shows:
  text              the text; one that begins with a dash goes behind --
  number            a whole number within its range
  switch            one of its labels, on or off, enable or disable, 1 or 0
  choice            the label, or the number where no label reads the same
  choice with text  CHOICE, or CHOICE:TEXT, or CHOICE and --text TEXT

The value is checked before anything is sent, and read back in the end. Without --keep it is lost
when the target starts anew.)";

std::string footer() {
    std::string text = manner;
    for (const ExitMeaning& row : exitMeanings) {
        text += "  " + std::to_string(row.code) + "  " + row.meaning + "\n";
    }
    text.pop_back();
    return text;
}

using Command = int (*)(Context&, const Options&);

// A range takes NaN, which is neither below nor above it.
std::string isNumber(const std::string& text) {
    return std::isnan(std::strtod(text.c_str(), nullptr)) ? text + " is no number" : std::string();
}

// One command line: the options it fills, and the command that was named.
class CommandLine {
public:
    CommandLine();
    CLI::App& app() { return app_; }
    Options options;
    Command command = nullptr;

private:
    CLI::App& add(const char* name, const char* words, Command what);
    void addAddress(CLI::App& to) {
        to.add_option("ADDRESS", options.address, "the target: address or name")->required();
    }
    void addInterface(CLI::App& to) {
        to.add_option("--interface", options.interface, "this network interface alone; all without")
            ->type_name("NAME");
    }
    void addAll(CLI::App& to) {
        to.add_flag(
            "--all", options.all,
            "targets of every product and version, not only those that the driver plays to");
    }
    void addList();
    void addSet();
    void addSend();

    CLI::App app_{about, "velmora-find"};
};

CommandLine::CommandLine() {
    app_.footer(footer());
    app_.set_version_flag("--version", VELMORA_RELEASE);
    app_.allow_windows_style_options(false);
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.get_formatter()->column_width(34);
    app_.add_flag("--verbose", options.verbose,
                  "also what the system logs; twice: every datagram besides");

    addList();
    CLI::App& watch = add("watch", "Shows targets as they come and go", watchCommand);
    addAll(watch);
    addInterface(watch);
    watch.add_option("--seconds", options.seconds, "ends after so long; without, at Ctrl-C")
        ->check(CLI::Range(0.0, 1e9))
        ->check(isNumber)
        ->type_name("N");
    CLI::App& info = add("info", "Shows everything that a target tells", infoCommand);
    addAddress(info);
    addInterface(info);
    CLI::App& settings = add("settings", "Shows a target's settings", settingsCommand);
    addAddress(settings);
    addInterface(settings);
    settings.add_flag("--kept", options.kept,
                      "the other value that a target may hold: as a rule what it starts with");
    addSet();
    addSend();
    CLI::App& doctor =
        add("doctor", "Looks for the cause when a target is not found", doctorCommand);
    addInterface(doctor);
}

CLI::App& CommandLine::add(const char* name, const char* words, Command what) {
    CLI::App& sub = *app_.add_subcommand(name, words);
    sub.get_formatter()->column_width(34);
    sub.add_flag("--json", options.json, "for programs: JSON on standard output");
    sub.callback([this, what] { command = what; });
    return sub;
}

void CommandLine::addList() {
    CLI::App& list =
        add("list", "Shows the targets that are there, a line for each sink", listCommand);
    addAll(list);
    addInterface(list);
    list.footer("The driver plays to the first one, unless its settings name another.");
    if (finderIsModule) {
        list.add_option("--dll", options.dll,
                        "the driver; without, the one beside this program or the registered one")
            ->type_name("FILE");
    }
}

void CommandLine::addSet() {
    CLI::App& set = add("set", "Changes a setting of a target", setCommand);
    addAddress(set);
    set.add_option("LABEL", options.label, "the setting, as \"settings\" shows it, or #1, #2 ...")
        ->required();
    set.add_option("VALUE", options.value, "what it shall hold")->required();
    set.add_option("--text", options.text, "the text of a choice with text")->type_name("TEXT");
    set.add_flag("--keep", options.keep, "also when the target starts anew");
    addInterface(set);
    set.footer(setManner);
}

void CommandLine::addSend() {
    CLI::App& send = add("send", "Sends a file into a channel of a target", sendCommand);
    addAddress(send);
    send.add_option("CHANNEL", options.channel, "the channel, from 0")
        ->required()
        ->check(CLI::Range(0, 65534));
    send.add_option("FILE", options.file, "the file, of 1 GiB at most")->required();
    send.add_option("--limit", options.limit, "bytes that go out at once, at most")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40))
        ->type_name("BYTES");
    addInterface(send);
}

constexpr int logLevels[] = {-1, 6, 7};

}  // namespace

int run(const std::vector<std::string>& arguments, Context& context) {
    CommandLine line;
    try {
        line.app().parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return line.app().exit(error, context.out, context.talk) == 0 ? exitDone : exitUsage;
    }
    const StreamLog log(context.talk, logLevels[std::min(line.options.verbose, 2)]);
    return velmora_console::runToItsEnd(context.out, context.talk, {exitFile, exitFault},
                                        [&] { return line.command(context, line.options); });
}

}  // namespace velmora_find
