#include "apps/log/Timeline.h"

#include <algorithm>
#include <cmath>

namespace velmora_log {

double Timeline::latenessOf(double step) {
    return std::pow(10.0, step / static_cast<double>(stepsPerDecade));
}

std::size_t Timeline::stepOf(std::uint32_t late) {
    const double step = std::log10(std::max(late, 1u)) * static_cast<double>(stepsPerDecade);
    return std::min(static_cast<std::size_t>(step), steps - 1);
}

double Timeline::Piece::at(double part) const {
    if (count == 0) return 0;
    const auto rank = static_cast<std::uint32_t>(std::llround(part * (count - 1)));
    std::uint32_t passed = 0;
    for (std::size_t i = 0; i < steps; ++i) {
        passed += counts[i];
        if (passed > rank) {
            return std::min(latenessOf(static_cast<double>(i) + 0.5), std::max(1.0, double(most)));
        }
    }
    return most;
}

void Timeline::addLateness(std::int64_t at, std::uint32_t late) {
    Piece& piece = pieceAt(at);
    ++piece.counts[stepOf(late)];
    ++piece.count;
    piece.most = std::max(piece.most, late);
}

Timeline::Piece& Timeline::pieceAt(std::int64_t at) {
    at = std::max<std::int64_t>(at, 0);
    while (at / width_ >= static_cast<std::int64_t>(mostPieces)) halve();
    const auto index = static_cast<std::size_t>(at / width_);
    if (index >= pieces_.size()) pieces_.resize(index + 1);
    return pieces_[index];
}

// Two pieces become one, of twice the length.
void Timeline::halve() {
    for (std::size_t i = 0; i < pieces_.size(); ++i) {
        const Piece from = pieces_[i];
        Piece& to = pieces_[i / 2];
        if (i % 2 == 0) {
            to = from;
            continue;
        }
        for (std::size_t s = 0; s < steps; ++s) to.counts[s] += from.counts[s];
        to.count += from.count;
        to.most = std::max(to.most, from.most);
        to.lateTurns += from.lateTurns;
        to.resends += from.resends;
    }
    pieces_.resize((pieces_.size() + 1) / 2);
    width_ *= 2;
}

}  // namespace velmora_log
