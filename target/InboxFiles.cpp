#include "target/InboxFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>

namespace velmora_target {

namespace {

namespace fs = std::filesystem;

constexpr const char* draftEnd = ".part";

class InboxFile final : public InboxItem {
public:
    // `next`: the number that the channel's next file gets; none below it is looked at.
    InboxFile(std::string stem, std::shared_ptr<unsigned> next, WriteThrough writeThrough)
        : stem_(std::move(stem)),
          next_(std::move(next)),
          writeThrough_(std::move(writeThrough)),
          number_(*next_) {}
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
        if (!writeThrough_(file_)) failure = cannot("write", draft_);
        if (std::fclose(std::exchange(file_, nullptr)) != 0 && failure.empty()) {
            failure = cannot("write", draft_);
        }
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
        *next_ = std::max(*next_, number_);
        return {};
    }

    // A link never replaces what is there, as a rename would: another target may share the folder.
    std::string giveName() {
        for (;; ++number_) {
            std::error_code error;
            name_ = nameAt(number_);
            fs::create_hard_link(draft_, name_, error);
            if (error == std::errc::file_exists) continue;
            // A file system without links.
            std::error_code unknown;
            if (error && !fs::exists(name_, unknown) && !unknown) {
                fs::rename(draft_, name_, error);
            }
            if (!error) {
                *next_ = std::max(*next_, number_ + 1);
                return {};
            }
            const std::string name = std::exchange(name_, {});
            return "cannot write " + name + ": " + error.message();
        }
    }

    std::string stem_, draft_, name_;
    std::shared_ptr<unsigned> next_;
    WriteThrough writeThrough_;
    unsigned number_;
    std::FILE* file_ = nullptr;
};

}  // namespace

MakeInboxItem inboxFolder(const std::string& folder, WriteThrough writeThrough) {
    using Numbers = std::map<std::uint16_t, std::shared_ptr<unsigned>>;  // by channel
    return [folder, writeThrough = std::move(writeThrough),
            numbers = Numbers()](std::uint16_t channel) mutable {
        const std::string name = "channel-" + std::to_string(channel) + '-';
        std::shared_ptr<unsigned>& next = numbers[channel];
        if (!next) next = std::make_shared<unsigned>(1);
        return std::make_unique<InboxFile>((fs::path(folder) / name).string(), next, writeThrough);
    };
}

}  // namespace velmora_target
