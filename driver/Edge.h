// The edge towards the host: what fails inside becomes an answer there, and no exception passes.
#pragma once

#include <exception>

// Writes one line about an exception that got as far as the edge.
void logEscaped(const char* operation, const char* what) noexcept;

// What `call` answers; `failure` where it threw.
template <class Answer, class Call>
Answer atEdge(const char* operation, Answer failure, Call&& call) noexcept {
    try {
        return call();
    } catch (const std::exception& e) {
        logEscaped(operation, e.what());
    } catch (...) {
        logEscaped(operation, "unknown exception");
    }
    return failure;
}
