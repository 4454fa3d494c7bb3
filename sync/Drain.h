// The end of a stream, step by step: what has been built, sent, asked and answered.
#pragma once

#include <cstdint>

namespace VELMORA {

class Drain {
public:
    enum Stage : std::uint32_t {
        running = 0,        // no end in sight
        closingBuilt = 1,   // the closing packet is built
        closingSent = 2,    // and sent
        infoRequested = 3,  // an INFO_ANS was asked for behind it
        infoArrived = 4,    // and came: the target has all
    };

    void onClosingBuilt() noexcept { stage_ = closingBuilt; }
    // A slot keeps its mark, so a closing packet can pass again when the ring has gone round: then
    // the request for INFO_ANS is made anew.
    void onClosingSent() noexcept { stage_ = closingSent; }
    void onInfoRequest() noexcept {
        if (stage_ == closingSent) stage_ = infoRequested;
    }
    void onInfo() noexcept {
        if (stage_ == infoRequested) stage_ = infoArrived;
    }

    std::uint32_t drainStage() const noexcept { return stage_; }
    bool hasBegun() const noexcept { return stage_ != running; }
    // The stages in which no more audio is asked for.
    bool takesNoAudio() const noexcept { return stage_ >= closingBuilt && stage_ <= infoRequested; }
    bool isDone() const noexcept { return stage_ == infoArrived; }

private:
    Stage stage_ = running;
};

}  // namespace VELMORA
