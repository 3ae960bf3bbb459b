// The request header block and the base64 pair used for its credentials.
// Every buffer is followed by guard bytes that must stay untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/client.h"

namespace {

const std::string kGuard(8, '#');

std::string headers(int contentLength, const char* user, const char* password, unsigned size = 1024,
                    const char* already = "") {
    std::string buffer(size, '\0');
    buffer += kGuard;
    std::memcpy(&buffer[0], already, std::strlen(already));
    int n = CIMC_CreateStdHttpHeaders("10.0.0.1", contentLength, &buffer[0], size, user, password);
    EXPECT_EQ(buffer.substr(size), kGuard);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buffer.c_str())));
    return buffer.c_str();
}

TEST(HeaderBlock, ExactLinesAndCredentials) {
    EXPECT_EQ(headers(42, "a", "b"),
              "POST  /cimom HTTP/1.1 \r\n"
              "Content-Type: application/xml; charset=\"utf-8\"\r\n"
              "Content-Length: 42\r\n"
              "Authorization: Basic YTpi\r\n");
    std::string h = headers(0, "a", nullptr);  // no Host line, an absent password is empty
    EXPECT_NE(h.find("\r\nContent-Length: 0\r\nAuthorization: Basic YTo=\r\n"), std::string::npos) << h;
    EXPECT_EQ(h.find("Host"), std::string::npos);
    EXPECT_NE(headers(1, nullptr, nullptr).find("Basic Og==\r\n"), std::string::npos);  // ":"
    // A line longer than the 16 KB scratch is cut there, its CR LF with it.
    const std::string password(20000, 'x');
    h = headers(1, "a", password.c_str(), 40000);
    EXPECT_EQ(h.size() - h.find("Authorization: Basic YTp4eHh4"), 16383u);
    EXPECT_EQ(h.substr(h.size() - 4), "h4eH");
}

TEST(HeaderBlock, AppendsToExistingTextAndCutsAtTheBufferSize) {
    const std::string whole = headers(1, "a", "b");
    const struct { unsigned size; const char* already; std::string want; } cases[] = {
        {1024, "X", "X" + whole},
        {10, "", "POST  /ci"},
        {10, "ABCDEFGHI", "ABCDEFGHI"},
        {1, "", ""},
        {static_cast<unsigned>(whole.size()), "", whole.substr(0, whole.size() - 1)},  // loses only the last LF
    };
    for (const auto& c : cases) EXPECT_EQ(headers(1, "a", "b", c.size, c.already), c.want) << c.size;
    char untouched = '#';
    EXPECT_EQ(CIMC_CreateStdHttpHeaders(nullptr, 1, &untouched, 0, "a", "b"), 0);
    EXPECT_EQ(untouched, '#');
}

TEST(Encode64, GroupsAndTheOutputBound) {
    const struct { const char* in; int size; const char* want; } cases[] = {
        {"", 64, ""}, {"a", 64, "YQ=="}, {"ab", 64, "YWI="}, {"abc", 64, "YWJj"}, {"a:b", 64, "YTpi"},
        {"\xfb\xff", 64, "+/8="},
        // Terminated inside the output: the last byte is always the NUL.
        {"a", 5, "YQ=="}, {"a", 4, "YQ="}, {"a", 2, "Y"}, {"abc", 4, "YWJ"}, {"abcdef", 6, "YWJjZ"}, {"abc", 1, ""},
        {"abc", 0, nullptr}};
    for (const auto& c : cases) {
        std::string out(static_cast<size_t>(c.size), '!');
        out += kGuard;
        Encode64(&out[0], c.in, c.size);
        EXPECT_EQ(out.substr(static_cast<size_t>(c.size)), kGuard) << c.in << " " << c.size;
        if (c.want) {
            EXPECT_STREQ(out.c_str(), c.want) << c.in << " " << c.size;
        }
    }
    Encode64(nullptr, "a", 8);
    char out[4] = "zz";
    Encode64(out, nullptr, 4);
    EXPECT_STREQ(out, "");
}

TEST(Decode64, GroupsPaddingAndTheSizeBound) {
    // want: the first bytes of the output (3 at least, as groups may hold NULs).
    const struct { const char* in; int size; int rc; std::string want; } cases[] = {
        {"", 16, 0, std::string(1, '\0')},
        {"=QUJD", 16, 0, std::string(1, '\0')},  // padding first ends the input
        {nullptr, 16, 0, std::string(1, '\0')},
        {"QUJD", 16, 0, std::string("ABC\0", 4)},
        {"YTo=", 16, 0, std::string("a:\0", 3)},
        {"QQ", 16, 0, std::string("A\0", 2)},
        {"QUJDREVG", 7, 0, std::string("ABCDEF\0", 7)},  // 6 bytes and the terminator fit in 7
        {"+AAA", 16, 0, std::string("\xFC\0\0", 3)},
        {"A/AA", 16, 0, std::string("\x0F\xF0\0", 3)},
        {"\x1b\x1f" "AA", 16, 0, std::string("\xFB\xF0\0", 3)},  // ESC and US carry 62 and 63
        {"\x80\x80\x80\x80", 16, 0, "\xFF\xFF\xFF"},               // bytes outside the table decode as 0xFF
        // Too big: reported in the output as far as it fits.
        {"QUJD", 3, -1, std::string("St\0", 3)},
        {"QUJDREVG", 6, -1, std::string("Strin\0", 6)},
        {"QUJDREVG", 15, 0, "ABCDEF"},
        {"QUJDREVGR0hJSktMTU5P", 15, -1, std::string("String too big\0", 15)},
        {"QUJD", 1, -1, std::string(1, '\0')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.in ? c.in : "(null)") + " in " + std::to_string(c.size));
        std::string out(static_cast<size_t>(c.size), '!');
        out += kGuard;
        EXPECT_EQ(Decode64(&out[0], c.in, c.size), c.rc);
        EXPECT_EQ(out.substr(static_cast<size_t>(c.size)), kGuard);
        EXPECT_EQ(out.substr(0, c.want.size()), c.want);
    }
    char untouched = '#';
    EXPECT_EQ(Decode64(&untouched, "QUJD", 0), -1);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(Decode64(nullptr, "QUJD", 16), -1);
}

}  // namespace
