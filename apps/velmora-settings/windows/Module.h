// The driver's module, from beside this program, and the finder that it exports.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "driver/FinderCall.h"

namespace velmora_settings {

class Module {
public:
    Module() = default;
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // False, with a sentence, for a module that is missing, is not this driver, or is of another
    // release than this program.
    bool load(const std::string& folder);
    // What is loaded, or the sentence.
    const std::string& about() const noexcept { return about_; }
    VELMORA::asio_velmora_find_call* finder() const noexcept { return finder_.get(); }

private:
    bool fail(std::string sentence);
    bool takeFinder(const std::string& path);

    HMODULE module_ = nullptr;
    std::unique_ptr<VELMORA::asio_velmora_find_call> finder_;
    std::string about_;
};

}  // namespace velmora_settings
