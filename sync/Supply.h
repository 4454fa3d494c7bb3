// What goes into the packets: audio from the block in hand, the next block when that is used up,
// silence where nothing plays, and the mark of the packet that closes the stream.
#pragma once

#include <cstdint>
#include <span>

#include "sync/Convert.h"
#include "sync/Drain.h"
#include "sync/StreamRef.h"

namespace VELMORA {

// What the supply asks of the session, all on the stream worker.
class AudioSource {
public:
    virtual ~AudioSource() = default;
    virtual bool getNewStream(StreamRef& out) = 0;
    virtual bool isPlaying() const noexcept = 0;
    virtual bool isDisconnecting() const noexcept = 0;
};

class Supply {
public:
    enum class Filled {
        whole,              // audio, silence, or first the one and then the other
        closingFinal,       // the audio has ended: the rest is silence, this is the closing packet
        closingDisconnect,  // the same, from a stream that was not playing
        starved,            // no audio came in time; the rest is unwritten
    };

    // So many blocks without a byte in a row count as none at all.
    static constexpr int mostEmptyBlocks = 10000;

    // Fills a packet's payload; 0 bytes ask for nothing. Every byte of audio passes `copyStream`
    // once, silence does not.
    Filled fill(std::span<std::uint8_t> payload, const Drain& drain, AudioSource& source,
                CopyStream copyStream, std::uint8_t silence);

    // Whether getNewStream was called since this was asked last.
    bool takeFetched() noexcept;

private:
    bool fetch(AudioSource& source);

    StreamRef stream_{};           // the block in hand
    std::uint64_t streamPos_ = 0;  // bytes of it that are consumed
    bool fetched_ = false;
};

}  // namespace VELMORA
