// The one growable buffer a whole Gen_ call writes into.
//
// It works directly in the caller's heap string: the text is appended after
// strlen(*text) and the buffer doubles as it fills, so a request of any size
// is written in time linear in its length, with no limit on any one piece.
// If an allocation fails the caller's text is left as it was (same content;
// the block may have moved, and the new address is stored back).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cimxml::writer {

class OutBuf {
public:
    // Takes over *text (NULL: starts a new string). Returns false, leaving
    // *text untouched, when the first allocation fails.
    bool open(char** text, std::size_t reserve = 1024) noexcept;

    // Stores the result through the pointer given to open(). After a failed
    // allocation the caller's original text is restored instead.
    void commit() noexcept;

    void append(const char* s, std::size_t n) noexcept {
        if (n >= cap_ - len_ && !grow(n)) return;
        std::memcpy(data_ + len_, s, n);
        len_ += n;
    }
    void append(const char* s) noexcept {
        if (s) append(s, std::strlen(s));
    }
    template <std::size_t N>
    void lit(const char (&s)[N]) noexcept {
        append(s, N - 1);
    }
    void appendInt(std::int32_t v) noexcept;

    // The wire mode this write is for; set once, after open().
    void setStandard(bool standard) noexcept { standard_ = standard; }
    bool standard() const noexcept { return standard_; }
    // Text taken from a record: in the standard mode with &, <, > and "
    // escaped (fit for element content and double-quoted attributes), else
    // as it stands.
    void text(const char* s) noexcept {
        if (s) text(s, std::strlen(s));
    }
    void text(const char* s, std::size_t n) noexcept {
        if (standard_) escaped(s, n);
        else append(s, n);
    }
    void escaped(const char* s) noexcept {
        if (s) escaped(s, std::strlen(s));
    }
    void escaped(const char* s, std::size_t n) noexcept;

    std::size_t size() const noexcept { return len_; }
    bool failed() const noexcept { return failed_; }

private:
    bool grow(std::size_t n) noexcept;

    char** dest_ = nullptr;
    char* data_ = nullptr;
    std::size_t base_ = 0; // length of the caller's text before this call
    std::size_t len_ = 0;
    std::size_t cap_ = 0;  // always > len_: room for the terminator
    bool callerHadText_ = false;
    bool failed_ = false;
    bool standard_ = false;
};

}  // namespace cimxml::writer
