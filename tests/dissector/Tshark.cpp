#include "tests/dissector/Tshark.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tests/base/TempFolder.h"

namespace velmora_test {
namespace {

using nlohmann::json;

constexpr std::string_view prefix = "velmora.", markPrefix = "velmora.expert.";

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// A home of a test's own: a dissector that somebody has installed would be a second one of the same
// name.
class Home {
public:
    std::string path(const std::string& name) const { return (folder_.native() / name).string(); }
    // What tshark prints.
    std::string tshark(const std::string& arguments) const {
        const std::string home = folder_.native().string();
        const std::string command = "env -u WIRESHARK_PLUGIN_DIR HOME=" + home +
                                    " XDG_CONFIG_HOME=" + home + " WIRESHARK_CONFIG_DIR=" + home +
                                    " LC_ALL=C.UTF-8 tshark " + arguments + " >" + path("out") +
                                    " 2>" + path("err");
        const int status = std::system(command.c_str());
        const std::string errors = contents(path("err"));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << command << "\n(is tshark installed?) " << errors;
        // It says itself that root runs it, and no more.
        EXPECT_EQ(errors.find("Lua"), std::string::npos) << errors;
        EXPECT_EQ(errors.find("lua"), std::string::npos) << errors;
        return contents(path("out"));
    }

private:
    TempFolder folder_;
};

std::string run(const Capture& capture, const std::string& options, const std::string& hosts = "") {
    const Home home;
    const std::string file = home.path("capture.pcap");
    capture.write(file);
    std::ofstream(home.path("hosts")) << hosts;
    return home.tshark((hosts.empty() ? "-n" : "-N n") + std::string(" -2 -r ") + file +
                       " -X lua_script:" VELMORA_DISSECTOR " " + options);
}

void addMark(const json& info, Shown& shown) {
    std::string text;
    for (const auto& [key, value] : info.items()) {
        if (key == "_ws.expert.message") text = value.get<std::string>();
    }
    for (const auto& [key, value] : info.items()) {
        if (key.starts_with(markPrefix)) shown.marks[key.substr(markPrefix.size())] = text;
    }
}

void addFields(const json& tree, Shown& shown);
void addValue(const std::string& key, const json& value, Shown& shown) {
    if (value.is_array()) {
        for (const json& one : value) addValue(key, one, shown);
    } else if (key == "_ws.expert") {
        addMark(value, shown);
    } else if (value.is_object()) {
        addFields(value, shown);
    } else if (key.starts_with(prefix)) {
        shown.fields[key.substr(prefix.size())].push_back(value.get<std::string>());
    }
}
void addFields(const json& tree, Shown& shown) {
    for (const auto& [key, value] : tree.items()) addValue(key, value, shown);
}

}  // namespace

std::string Shown::operator[](const std::string& field) const {
    const auto found = fields.find(field);
    if (found == fields.end()) return "-";
    std::string out;
    for (const std::string& value : found->second) out += (out.empty() ? "" : ",") + value;
    return out;
}

bool Shown::isMalformed() const {
    return isMarked("too_short") || isMarked("bad_magic") || isMarked("bad_length");
}

std::string Shown::markNames() const {
    std::string out;
    for (const auto& [name, text] : marks) out += (out.empty() ? "" : " ") + name;
    return out;
}

std::vector<Shown> dissect(const Capture& capture, const std::string& options) {
    const std::string text =
        run(capture, "-T json --no-duplicate-keys -J 'frame velmora' " + options);
    EXPECT_EQ(text.find("_ws.lua.error"), std::string::npos);
    EXPECT_EQ(text.find("Lua Error"), std::string::npos);
    const json all = json::parse(text, nullptr, /*allow_exceptions=*/false);
    std::vector<Shown> out;
    EXPECT_TRUE(all.is_array()) << text.substr(0, 500);
    if (!all.is_array()) return out;
    for (const json& packet : all) {
        Shown& shown = out.emplace_back();
        const json& layers = packet["_source"]["layers"];
        shown.protocols = layers["frame"].value("frame.protocols", "");
        if (!layers.contains("velmora")) continue;
        shown.isOurs = true;
        addFields(layers["velmora"], shown);
        EXPECT_FALSE(shown.isMarked("internal")) << shown.marks["internal"];
    }
    EXPECT_EQ(out.size(), capture.count());
    out.resize(capture.count());
    return out;
}

std::vector<std::string> dissectedLines(const Capture& capture, const std::string& options,
                                        const std::string& hosts) {
    return linesOf(run(capture, options, hosts));
}

std::vector<std::string> dissectedLinesWhenInstalled(const Capture& capture) {
    const Home home;
    const std::filesystem::path plugins = home.path(".local/lib/wireshark/plugins");
    std::filesystem::create_directories(plugins);
    std::filesystem::copy_file(VELMORA_DISSECTOR, plugins / "velmora.lua");
    const std::string file = home.path("capture.pcap");
    capture.write(file);
    return linesOf(home.tshark("-n -2 -r " + file));
}

std::vector<std::string> tsharkLines(const std::string& options) {
    return linesOf(Home().tshark(options));
}

}  // namespace velmora_test
