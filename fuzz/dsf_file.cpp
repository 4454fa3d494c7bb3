// The reader of DSF files: what it takes is no longer than the file, the same however it is read,
// and the same once it has been written and read again.
#include "apps/audio/DsfFile.h"

#include "fuzz/Fuzz.h"
#include "fuzz/ScratchFile.h"

using namespace velmora_audio;

namespace {

std::vector<std::uint8_t> readAll(DsfReader& reader, std::size_t atOnce) {
    std::vector<std::uint8_t> all, piece(atOnce);
    while (const std::size_t bytes = reader.read(piece)) {
        require(bytes <= piece.size() && bytes % reader.format().channels == 0);
        all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(bytes));
        require(all.size() <= reader.bytesPerChannel() * reader.format().channels);
    }
    return all;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const velmora_fuzz::ScratchFile scratch, copy;
    scratch.write({data, size});
    DsfReader reader;
    if (!reader.open(scratch.path()).empty()) return 0;
    const DsfFormat format = reader.format();
    require(format.channels >= 1 && format.channels <= dsfMostChannels && format.sampleRate != 0);
    const std::vector<std::uint8_t> all = readAll(reader, 5000);
    require(all.size() <= size);

    require(reader.open(scratch.path()).empty());
    require(readAll(reader, format.channels) == all);

    DsfWriter writer;
    require(writer.open(copy.path(), format.channels, format.sampleRate).empty());
    require(writer.write(all).empty() && writer.close().empty());
    DsfReader again;
    require(again.open(copy.path()).empty());
    require(again.format().channels == format.channels);
    require(again.format().sampleRate == format.sampleRate);
    require(again.format().samples == all.size() / format.channels * 8);
    require(readAll(again, 8192) == all);
    return 0;
}
