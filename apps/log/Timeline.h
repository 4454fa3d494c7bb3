// Lateness over the time of a stream, for a picture: a bounded number of pieces of equal length,
// which grow longer as time goes on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora_log {

class Timeline {
public:
    static constexpr std::size_t mostPieces = 480;
    // Of lateness, from 1 µs to 1 s; what lies outside goes to the ends.
    static constexpr std::size_t stepsPerDecade = 12, decades = 6, steps = stepsPerDecade * decades;

    struct Piece {
        std::array<std::uint32_t, steps> counts{};
        std::uint32_t count = 0, most = 0;
        std::uint32_t lateTurns = 0, resends = 0;
        double at(double part) const;  // µs, as exactly as a picture wants; 0 of none
    };

    void addLateness(std::int64_t at, std::uint32_t late);  // both µs; `at` from 0
    void addLateTurn(std::int64_t at) { ++pieceAt(at).lateTurns; }
    void addResend(std::int64_t at) { ++pieceAt(at).resends; }

    const std::vector<Piece>& pieces() const { return pieces_; }
    std::int64_t pieceMicros() const { return width_; }

    static std::size_t stepOf(std::uint32_t late);
    static double latenessOf(double step);  // µs

private:
    Piece& pieceAt(std::int64_t at);
    void halve();

    std::vector<Piece> pieces_;
    std::int64_t width_ = 50'000;
};

}  // namespace velmora_log
