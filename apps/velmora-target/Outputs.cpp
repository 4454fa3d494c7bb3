#include "apps/velmora-target/Outputs.h"

#include <filesystem>
#include <map>
#include <utility>

#include "target/OutputChoice.h"

namespace velmora_target {

namespace {

// A file that gets its name when a stream opens it: with a number from the second one on, so that
// no stream overwrites another's.
class NumberedFile final : public AudioOutput {
public:
    NumberedFile(std::filesystem::path path, std::uint16_t sinkNo, std::shared_ptr<int> written,
                 bool mayReplace)
        : extension_(path.extension()),
          stem_(path.replace_extension().string() +
                (sinkNo > 1 ? "-sink" + std::to_string(sinkNo) : std::string())),
          written_(std::move(written)),
          mayReplace_(mayReplace) {}

    std::string open(VELMORA::SinkConfig format) override {
        const bool isDsf = extension_.empty() ? format.isDsd() : extension_ == ".dsf";
        const char* extension = isDsf ? ".dsf" : ".wav";
        while (!mayReplace_ && std::filesystem::exists(stem() + extension)) ++*written_;
        file_ = isDsf ? dsfOutput(stem() + extension) : wavOutput(stem() + extension);
        const std::string failure = file_->open(format);
        if (failure.empty()) ++*written_;
        return failure;
    }
    bool write(VELMORA::wire::ConstBytes frames) override { return file_->write(frames); }
    std::string close() override { return file_ ? file_->close() : std::string(); }
    std::string where() const override { return file_ ? file_->where() : std::string(); }

private:
    std::string stem() const {
        return *written_ == 0 ? stem_ : stem_ + "-" + std::to_string(*written_ + 1);
    }

    std::filesystem::path extension_;
    std::string stem_;
    std::shared_ptr<int> written_;  // streams of this sink that have a file
    bool mayReplace_;
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

MakeOutput outputMaker(const std::string& own) {
    using Written = std::map<std::pair<std::string, std::uint16_t>, std::shared_ptr<int>>;
    return
        [own, written = Written()](const std::string& output,
                                   std::uint16_t sinkNo) mutable -> std::unique_ptr<AudioOutput> {
            if (output == "none") return std::make_unique<NoOutput>();
            if (output.starts_with(alsaPrefix)) return alsaOutput(output.substr(alsaPrefix.size()));
            std::shared_ptr<int>& count = written[{output, sinkNo}];
            if (!count) count = std::make_shared<int>(0);
            return std::make_unique<NumberedFile>(output, sinkNo, count, output == own);
        };
}

}  // namespace velmora_target
