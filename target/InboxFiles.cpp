#include "target/InboxFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

namespace velmora_target {

namespace {

namespace fs = std::filesystem;

constexpr const char* draftEnd = ".part";

class InboxFile final : public InboxItem {
public:
    explicit InboxFile(std::string stem) : stem_(std::move(stem)) {}
    ~InboxFile() override { discard(); }

    std::string append(VELMORA::wire::ConstBytes data) override {
        const std::string failure = open();
        if (!failure.empty()) return failure;
        const bool written = std::fwrite(data.data(), 1, data.size(), file_) == data.size();
        return written ? std::string() : cannot("write", draft_);
    }

    std::string finish() override {
        std::string failure = open();  // an empty transfer is an empty file
        if (!failure.empty()) return failure;
        if (std::fclose(std::exchange(file_, nullptr)) != 0) failure = cannot("write", draft_);
        if (failure.empty()) failure = giveName();
        discard();
        return failure;
    }

    void discard() override {
        if (file_ != nullptr) std::fclose(std::exchange(file_, nullptr));
        std::error_code ignored;
        if (!draft_.empty()) fs::remove(std::exchange(draft_, {}), ignored);
    }

    std::string where() const override { return name_; }

private:
    std::string nameAt(unsigned number) const { return stem_ + std::to_string(number) + ".bin"; }
    static std::string cannot(const char* what, const std::string& path) {
        return std::string("cannot ") + what + ' ' + path + ": " + std::strerror(errno);
    }

    // A draft of one's own, under the first name that is free.
    std::string open() {
        std::error_code ignored;
        for (; file_ == nullptr; ++number_) {
            if (fs::exists(nameAt(number_), ignored)) continue;
            draft_ = nameAt(number_) + draftEnd;
            file_ = std::fopen(draft_.c_str(), "wbx");
            if (file_ != nullptr) break;
            const bool isOthers = errno == EEXIST;
            const std::string failure = cannot("write", draft_);
            draft_.clear();
            if (!isOthers) return failure;
        }
        return {};
    }

    // A link never replaces what is there, as a rename would: another target may share the folder.
    std::string giveName() {
        for (;; ++number_) {
            std::error_code error;
            name_ = nameAt(number_);
            fs::create_hard_link(draft_, name_, error);
            if (!error) return {};
            if (error == std::errc::file_exists) continue;
            // A file system without links.
            if (!fs::exists(name_)) fs::rename(draft_, name_, error);
            if (!error) return {};
            const std::string name = std::exchange(name_, {});
            return "cannot write " + name + ": " + error.message();
        }
    }

    std::string stem_, draft_, name_;
    unsigned number_ = 1;
    std::FILE* file_ = nullptr;
};

}  // namespace

MakeInboxItem inboxFolder(const std::string& folder) {
    return [folder](std::uint16_t channel) {
        const std::string name = "channel-" + std::to_string(channel) + '-';
        return std::make_unique<InboxFile>((fs::path(folder) / name).string());
    };
}

}  // namespace velmora_target
