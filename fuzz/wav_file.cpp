// The reader of WAV files: what it takes is a format that can be played, no longer than the file,
// and the same however it is read.
#include "apps/audio/WavFile.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "fuzz/Fuzz.h"
#include "fuzz/ScratchFile.h"

using velmora_audio::WavFile;

namespace {

std::vector<double> readAll(WavFile& file, std::size_t atOnce) {
    std::vector<double> all, piece(atOnce);
    while (const std::uint64_t frames = file.read(piece)) {
        const std::uint64_t samples = frames * file.format().channels;
        require(samples <= piece.size());
        all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(samples));
        require(all.size() <= file.format().frames * file.format().channels);
    }
    return all;
}

bool isSame(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * 8) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const velmora_fuzz::ScratchFile scratch;
    scratch.write({data, size});
    WavFile file;
    const bool taken = file.open(scratch.path());
    require(taken == file.error().empty());
    const velmora_audio::WavFormat& format = file.format();
    if (!taken) {
        require(format.channels == 0 && format.frames == 0);
        std::vector<double> nothing(8);
        require(file.read(nothing) == 0 && !file.seek(0));
        return 0;
    }
    require(format.rate != 0 && format.channels >= 1 && format.channels <= 64);
    require(format.isFloat ? format.bits == 32 || format.bits == 64
                           : format.bits % 8 == 0 && format.bits >= 8 && format.bits <= 32);
    require(format.frames <= size / (format.channels * (format.bits / 8)));

    const std::vector<double> all = readAll(file, 4096);
    require(all.size() == format.frames * format.channels);
    for (const double sample : all) require(format.isFloat || (sample >= -1.0 && sample < 1.0));
    // Too little room for one frame is no frame.
    std::vector<double> small(format.channels - 1);
    require(file.seek(0) && file.read(small) == 0);
    require(isSame(readAll(file, format.channels), all));
    require(file.seek(format.frames) && readAll(file, 64).empty());
    require(!file.seek(format.frames + 1));
    require(file.seek(format.frames / 2));
    const auto half = static_cast<std::ptrdiff_t>(format.frames / 2 * format.channels);
    require(isSame(readAll(file, 640), {all.begin() + half, all.end()}));
    return 0;
}
