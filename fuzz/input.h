// A small reader over the fuzzer's bytes, the same in the libFuzzer build
// and in the replay build (which has no clang headers).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace cimfuzz {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : p_(data), left_(size) {}

    std::size_t left() const { return left_; }
    std::uint8_t byte() {
        if (!left_) return 0;
        --left_;
        return *p_++;
    }
    bool flag() { return byte() & 1; }
    // A number in [0, n), n > 0.
    unsigned pick(unsigned n) { return n ? byte() % n : 0; }
    std::uint16_t u16() { return static_cast<std::uint16_t>(byte() | byte() << 8); }
    std::uint64_t u64() {
        std::uint64_t v = 0;
        for (int i = 0; i < 8; ++i) v = v << 8 | byte();
        return v;
    }
    // Up to `max` bytes, ended early by a zero byte (which is consumed).
    std::string text(std::size_t max) {
        std::string s;
        while (left_ && s.size() < max) {
            std::uint8_t c = byte();
            if (!c) break;
            s += static_cast<char>(c);
        }
        return s;
    }
    // Everything that is left.
    std::string rest() {
        std::string s(reinterpret_cast<const char*>(p_), left_);
        p_ += left_;
        left_ = 0;
        return s;
    }

private:
    const std::uint8_t* p_;
    std::size_t left_;
};

}  // namespace cimfuzz
