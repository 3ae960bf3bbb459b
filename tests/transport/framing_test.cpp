// The request header block and the base64 pair used for its credentials.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/client.h"

namespace {

std::string headers(int contentLength, const char* user, const char* password, unsigned size = 1024,
                    const char* already = "") {
    std::string buffer(size + 8, '#');  // '#' past the end catches overruns
    std::memset(&buffer[0], 0, size);
    std::memcpy(&buffer[0], already, std::strlen(already));
    int n = CIMC_CreateStdHttpHeaders("10.0.0.1", contentLength, &buffer[0], size, user, password);
    EXPECT_EQ(buffer.substr(size), std::string(8, '#'));
    EXPECT_EQ(n, static_cast<int>(std::strlen(buffer.c_str())));
    return buffer.c_str();
}

std::string encode(const std::string& input, int size = 64) {
    std::string out(size + 8, '#');
    Encode64(&out[0], input.c_str(), size);
    EXPECT_EQ(out.substr(size), std::string(8, '#'));
    return out.c_str();
}

// Decode64 result and the bytes up to the terminator (or 3 bytes at least,
// since decoded groups may hold NULs).
int decode(const char* input, int size, std::string* out) {
    std::string buffer(size + 8, '#');
    int rc = Decode64(&buffer[0], input, size);
    EXPECT_EQ(buffer.substr(size), std::string(8, '#'));
    *out = buffer.substr(0, size);
    return rc;
}

TEST(HeaderBlock, ExactLinesWithBasicCredentials) {
    EXPECT_EQ(headers(42, "a", "b"),
              "POST  /cimom HTTP/1.1 \r\n"
              "Content-Type: application/xml; charset=\"utf-8\"\r\n"
              "Content-Length: 42\r\n"
              "Authorization: Basic YTpi\r\n");
}

TEST(HeaderBlock, AbsentPasswordZeroLengthAndNoUser) {
    std::string h = headers(0, "a", nullptr);
    EXPECT_NE(h.find("\r\nContent-Length: 0\r\n"), std::string::npos);
    EXPECT_NE(h.find("\r\nAuthorization: Basic YTo=\r\n"), std::string::npos);
    EXPECT_EQ(h.find("Host"), std::string::npos);
    EXPECT_NE(headers(1, nullptr, nullptr).find("Basic Og==\r\n"), std::string::npos);  // ":"
}

TEST(HeaderBlock, AppendsToExistingTextAndCutsAtTheBufferSize) {
    EXPECT_EQ(headers(1, "a", "b", 1024, "X").substr(0, 8), "XPOST  /");
    EXPECT_EQ(headers(1, "a", "b", 10), "POST  /ci");
    EXPECT_EQ(headers(1, "a", "b", 10, "ABCDEFGHI"), "ABCDEFGHI");
    EXPECT_EQ(headers(1, "a", "b", 1), "");
    char untouched = '#';
    EXPECT_EQ(CIMC_CreateStdHttpHeaders(nullptr, 1, &untouched, 0, "a", "b"), 0);
    EXPECT_EQ(untouched, '#');
    // One byte short of the whole block loses only the final LF.
    std::string whole = headers(1, "a", "b");
    EXPECT_EQ(headers(1, "a", "b", static_cast<unsigned>(whole.size())), whole.substr(0, whole.size() - 1));
}

TEST(Encode64, Rfc4648Groups) {
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(encode("a"), "YQ==");
    EXPECT_EQ(encode("ab"), "YWI=");
    EXPECT_EQ(encode("abc"), "YWJj");
    EXPECT_EQ(encode("a:b"), "YTpi");
    EXPECT_EQ(encode("a:"), "YTo=");
    EXPECT_EQ(encode("\xfb\xff"), "+/8=");
    Encode64(nullptr, "a", 8);
    char out[4] = "zz";
    Encode64(out, nullptr, 4);
    EXPECT_STREQ(out, "");
}

TEST(Encode64, StaysTerminatedInsideTheOutput) {
    EXPECT_EQ(encode("a", 5), "YQ==");  // exact fit
    EXPECT_EQ(encode("a", 4), "YQ=");
    EXPECT_EQ(encode("a", 2), "Y");
    EXPECT_EQ(encode("abc", 4), "YWJ");
    EXPECT_EQ(encode("abcdef", 6), "YWJjZ");
    EXPECT_EQ(encode("abc", 1), "");
    char untouched = '#';
    Encode64(&untouched, "abc", 0);
    EXPECT_EQ(untouched, '#');
}

TEST(Decode64, EmptyAndPaddingOnlyInput) {
    std::string out;
    EXPECT_EQ(decode("", 16, &out), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(decode("=QUJD", 16, &out), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(decode(nullptr, 16, &out), 0);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(Decode64(nullptr, "QUJD", 16), -1);
}

TEST(Decode64, GroupsAndPadding) {
    std::string out;
    EXPECT_EQ(decode("QUJD", 16, &out), 0);
    EXPECT_STREQ(out.c_str(), "ABC");
    EXPECT_EQ(decode("YTpi", 16, &out), 0);
    EXPECT_STREQ(out.c_str(), "a:b");
    EXPECT_EQ(decode("YTo=", 16, &out), 0);
    EXPECT_STREQ(out.c_str(), "a:");
    EXPECT_EQ(decode("QQ", 16, &out), 0);
    EXPECT_STREQ(out.c_str(), "A");
    EXPECT_EQ(decode("QUJDREVG", 7, &out), 0);  // 6 bytes and the terminator fit in 7
    EXPECT_STREQ(out.c_str(), "ABCDEF");
}

TEST(Decode64, TooBigIsReportedInTheOutputAsFarAsItFits) {
    std::string out;
    EXPECT_EQ(decode("QUJD", 3, &out), -1);  // 3 bytes reach the bound
    EXPECT_STREQ(out.c_str(), "St");
    EXPECT_EQ(decode("QUJDREVG", 6, &out), -1);  // the second group; the first is overwritten
    EXPECT_STREQ(out.c_str(), "Strin");
    EXPECT_EQ(decode("QUJDREVG", 15, &out), 0);
    EXPECT_EQ(decode("QUJDREVGR0hJSktMTU5P", 15, &out), -1);
    EXPECT_STREQ(out.c_str(), "String too big");
    EXPECT_EQ(decode("QUJD", 1, &out), -1);
    EXPECT_EQ(out[0], '\0');
    char untouched = '#';
    EXPECT_EQ(Decode64(&untouched, "QUJD", 0), -1);
    EXPECT_EQ(untouched, '#');
}

TEST(Decode64, PlusAndSlashSpillWhileEscAndUsCarry62And63) {
    std::string out;
    EXPECT_EQ(decode("+AAA", 16, &out), 0);
    EXPECT_EQ(out.substr(0, 3), std::string("\xFC\0\0", 3));
    EXPECT_EQ(decode("A/AA", 16, &out), 0);
    EXPECT_EQ(out.substr(0, 3), std::string("\x0F\xF0\0", 3));
    EXPECT_EQ(decode("\x1b\x1f" "AA", 16, &out), 0);  // what "+/AA" means elsewhere
    EXPECT_EQ(out.substr(0, 3), std::string("\xFB\xF0\0", 3));
    EXPECT_EQ(decode("\x80\x80\x80\x80", 16, &out), 0);  // bytes outside the table decode as 0xFF too
    EXPECT_EQ(out.substr(0, 3), "\xFF\xFF\xFF");
}

}  // namespace
