#include "writer/out_buffer.h"

#include <algorithm>
#include <cstdlib>

#include "model/alloc.h"

namespace cimxml::writer {

bool OutBuf::open(char** text, std::size_t reserve) noexcept {
    dest_ = text;
    callerHadText_ = *text != nullptr;
    base_ = callerHadText_ ? std::strlen(*text) : 0;
    if (reserve > SIZE_MAX / 2 - base_) return false;
    std::size_t cap = base_ + 1 + reserve;
    char* p = static_cast<char*>(callerHadText_ ? xrealloc(*text, cap) : xmalloc(cap));
    if (!p) return false;
    data_ = p;
    cap_ = cap;
    len_ = base_;
    failed_ = false;
    return true;
}

bool OutBuf::grow(std::size_t n) noexcept {
    if (failed_) return false;
    if (n > SIZE_MAX / 2 - len_) {
        failed_ = true;
        return false;
    }
    const std::size_t need = len_ + n + 1;
    const std::size_t cap = std::max(cap_ * 2, need);  // a doubling that wraps gives way to need
    char* p = static_cast<char*>(xrealloc(data_, cap));
    if (!p) {
        failed_ = true;
        return false;
    }
    data_ = p;
    cap_ = cap;
    return true;
}

void OutBuf::appendInt(std::int32_t v) noexcept {
    char digits[12];
    char* end = digits + sizeof digits;
    char* p = end;
    // Unsigned magnitude: INT32_MIN has no positive int32 counterpart.
    std::uint32_t mag = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
    do {
        *--p = static_cast<char>('0' + mag % 10);
        mag /= 10;
    } while (mag);
    if (v < 0) *--p = '-';
    append(p, static_cast<std::size_t>(end - p));
}

void OutBuf::escaped(const char* s, std::size_t n) noexcept {
    const char* run = s;
    for (const char* end = s + n; s != end; ++s) {
        const char* entity;
        std::size_t entityLength;
        switch (*s) {
            case '&': entity = "&amp;"; entityLength = 5; break;
            case '<': entity = "&lt;"; entityLength = 4; break;
            case '>': entity = "&gt;"; entityLength = 4; break;
            case '"': entity = "&quot;"; entityLength = 6; break;
            default: continue;
        }
        append(run, static_cast<std::size_t>(s - run));
        append(entity, entityLength);
        run = s + 1;
    }
    append(run, static_cast<std::size_t>(s - run));
}

void OutBuf::commit() noexcept {
    if (!data_) return;
    if (failed_) {
        if (!callerHadText_) {
            std::free(data_);
            data_ = nullptr;
            return;
        }
        len_ = base_;
    }
    data_[len_] = '\0';
    *dest_ = data_;
    data_ = nullptr;
}

}  // namespace cimxml::writer
