#include "apps/velmora-target/Outputs.h"

#include <filesystem>
#include <map>

namespace velmora_target {

namespace {

constexpr std::string_view alsaPrefix = "alsa:";

// A file that gets its name when a stream opens it: with a number from the second one on, so that
// no stream overwrites another's.
class NumberedFile final : public AudioOutput {
public:
    NumberedFile(std::filesystem::path path, std::uint16_t sinkNo, std::shared_ptr<int> written)
        : extension_(path.extension()),
          stem_(path.replace_extension().string() +
                (sinkNo > 1 ? "-sink" + std::to_string(sinkNo) : std::string())),
          written_(std::move(written)) {}

    std::string open(VELMORA::SinkConfig format) override {
        const std::string stem =
            *written_ == 0 ? stem_ : stem_ + "-" + std::to_string(*written_ + 1);
        const bool isDsf = extension_.empty() ? format.isDsd() : extension_ == ".dsf";
        file_ = isDsf ? dsfOutput(stem + ".dsf") : wavOutput(stem + ".wav");
        const std::string failure = file_->open(format);
        if (failure.empty()) ++*written_;
        return failure;
    }
    bool write(VELMORA::wire::ConstBytes frames) override { return file_->write(frames); }
    std::string close() override { return file_ ? file_->close() : std::string(); }
    std::string where() const override { return file_ ? file_->where() : std::string(); }

private:
    std::filesystem::path extension_;
    std::string stem_;
    std::shared_ptr<int> written_;  // streams of this sink that have a file
    std::unique_ptr<AudioOutput> file_;
};

}  // namespace

std::string objectionTo(const std::string& output) {
    if (output == "none" || output.starts_with(alsaPrefix)) return {};
    const std::filesystem::path path(output);
    const std::filesystem::path extension = path.extension();
    if (extension != ".wav" && extension != ".dsf" && !extension.empty()) {
        return output + ": files end in .wav or .dsf, or have no extension";
    }
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    std::error_code ignored;
    if (!std::filesystem::is_directory(folder, ignored)) {
        return "there is no folder " + folder.string();
    }
    return {};
}

MakeOutput outputMaker(const std::string& output) {
    if (output == "none") {
        return [](std::uint16_t) { return std::make_unique<NoOutput>(); };
    }
    if (output.starts_with(alsaPrefix)) {
        return [output](std::uint16_t) { return alsaOutput(output.substr(alsaPrefix.size())); };
    }
    return [output, written = std::map<std::uint16_t, std::shared_ptr<int>>()](
               std::uint16_t sinkNo) mutable {
        std::shared_ptr<int>& count = written[sinkNo];
        if (!count) count = std::make_shared<int>(0);
        return std::make_unique<NumberedFile>(output, sinkNo, count);
    };
}

}  // namespace velmora_target
