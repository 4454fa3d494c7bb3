#include "apps/velmora-find/FileReading.h"

#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <system_error>

#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"

namespace velmora_find {
namespace {

namespace fs = std::filesystem;

// A byte more than the size is asked for, so that a file that grows is seen to grow.
bool readAll(std::ifstream& file, std::uint64_t size, ZENNO::Bytes& out) {
    out.resize(size + 1);
    file.read(reinterpret_cast<char*>(out.data()), static_cast<std::streamsize>(out.size()));
    if (file.bad()) return false;
    out.resize(static_cast<std::size_t>(file.gcount()));
    return true;
}

}  // namespace

ZENNO::Bytes readUnchanged(const std::string& path, const std::function<void()>& meanwhile) {
    const std::string name = printable(path);
    const fs::path where = fs::u8path(path);
    std::error_code error;
    if (!fs::is_regular_file(where, error)) {
        throw Stop{exitFile, fs::exists(where, error) ? name + " is no file."
                                                      : name + ": there is no such file."};
    }
    const std::uint64_t size = fs::file_size(where, error);
    std::ifstream file(where, std::ios::binary);
    if (error || !file) {
        throw Stop{exitFile, name +
                                 " cannot be opened. May you read it, and does another program "
                                 "hold it?"};
    }
    if (size > largestFile) {
        throw Stop{exitFile, name + " is larger than 1 GiB, which is the most that is sent."};
    }
    if (meanwhile) meanwhile();
    ZENNO::Bytes data;
    try {
        if (!readAll(file, size, data)) throw Stop{exitFile, name + " cannot be read to its end."};
    } catch (const std::bad_alloc&) {
        throw Stop{exitFile, name + " is larger than this computer's memory."};
    } catch (const std::length_error&) {
        throw Stop{exitFile, name + " is larger than this computer's memory."};
    }
    if (data.size() != size || fs::file_size(where, error) != size) {
        throw Stop{exitFile, name +
                                 " changes its size while it is read: another program writes "
                                 "it. Nothing was sent."};
    }
    return data;
}

}  // namespace velmora_find
