// A process beside the bench's own, with a pipe each way. It ends when it is told to, and with the
// bench in any case.
#pragma once

#include <sys/types.h>

#include <functional>
#include <type_traits>
#include <vector>

namespace velmora_bench {

// False when the other end has gone.
bool writeAll(int to, const void* data, std::size_t size);
bool readAll(int from, void* data, std::size_t size);

template <class T>
void tell(int to, const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    writeAll(to, &value, sizeof value);
}
template <class T>
void tell(int to, const std::vector<T>& values) {
    tell(to, values.size());
    writeAll(to, values.data(), values.size() * sizeof(T));
}

class Child {
public:
    // What the child does: `order` becomes readable when it shall end, `result` is for its words.
    using Body = std::function<void(int order, int result)>;

    // Throws std::runtime_error when no process can be had. Call it while there is one thread.
    explicit Child(const Body& body);
    ~Child();  // tells it to end, and waits for that
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void askToEnd();
    int result() const noexcept { return result_; }
    template <class T>
    T hear() const {
        T value{};
        if (!readAll(result_, &value, sizeof value)) endedEarly();
        return value;
    }
    template <class T>
    std::vector<T> hearMany() const {
        std::vector<T> values(hear<std::size_t>());
        if (!readAll(result_, values.data(), values.size() * sizeof(T))) endedEarly();
        return values;
    }

private:
    [[noreturn]] static void endedEarly();

    pid_t process_ = -1;
    int order_ = -1, result_ = -1;
};

}  // namespace velmora_bench
