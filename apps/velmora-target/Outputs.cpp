#include "apps/velmora-target/Outputs.h"

#include <filesystem>
#include <map>
#include <utility>

#include "apps/velmora-target/alsa/AlsaDevice.h"
#include "target/DeviceOutput.h"
#include "target/OutputChoice.h"

namespace velmora_target {

namespace {

// Streams that have a file, by output and sink. Hosts name outputs; a name that never became a file
// is not remembered.
using Written = std::map<std::pair<std::string, std::uint16_t>, int>;

// A file that gets its name when a stream opens it: with a number from the second one on, so that
// no stream overwrites another's.
class NumberedFile final : public AudioOutput {
public:
    NumberedFile(const Written::key_type& key, std::shared_ptr<Written> written, bool mayReplace)
        : key_(key), written_(std::move(written)), mayReplace_(mayReplace) {
        std::filesystem::path path(key.first);
        extension_ = path.extension();
        stem_ = path.replace_extension().string();
        if (key.second > 1) stem_ += "-sink" + std::to_string(key.second);
    }

    std::string open(VELMORA::SinkConfig format) override {
        const bool isDsf = extension_.empty() ? format.isDsd() : extension_ == ".dsf";
        const char* extension = isDsf ? ".dsf" : ".wav";
        const auto known = written_->find(key_);
        int before = known == written_->end() ? 0 : known->second;
        std::error_code error;
        while (!mayReplace_ && std::filesystem::exists(nameAt(before) + extension, error)) ++before;
        const std::string name = nameAt(before) + extension;
        if (error) return "cannot write " + name + ": " + error.message();
        file_ = isDsf ? dsfOutput(name) : wavOutput(name);
        const std::string failure = file_->open(format);
        if (failure.empty()) (*written_)[key_] = before + 1;
        return failure;
    }
    bool write(VELMORA::wire::ConstBytes frames) override { return file_->write(frames); }
    std::string close() override { return file_ ? file_->close() : std::string(); }
    std::string where() const override { return file_ ? file_->where() : std::string(); }

private:
    std::string nameAt(int before) const {
        return before == 0 ? stem_ : stem_ + "-" + std::to_string(before + 1);
    }

    Written::key_type key_;
    std::shared_ptr<Written> written_;
    bool mayReplace_;
    std::filesystem::path extension_;
    std::string stem_;
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

MakeOutput outputMaker(const std::string& own, const PcmTimes& times) {
    return [own, times, written = std::make_shared<Written>()](
               const std::string& output, std::uint16_t sinkNo) -> std::unique_ptr<AudioOutput> {
        if (output == "none") return std::make_unique<NoOutput>();
        if (output.starts_with(alsaPrefix)) {
            const std::string device = output.substr(alsaPrefix.size());
            return std::make_unique<DeviceOutput>(device, alsaDevice(device), times);
        }
        return std::make_unique<NumberedFile>(Written::key_type{output, sinkNo}, written,
                                              output == own);
    };
}

TakenFormats formatsOfOutput(const std::string& output, const FormatMasks& allowed) {
    if (!output.starts_with(alsaPrefix)) return {allowed, {}};
    const std::string device = output.substr(alsaPrefix.size());
    return formatsOf(device, *alsaDevice(device), allowed);
}

}  // namespace velmora_target
