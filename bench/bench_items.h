// The enumeration fixture the end-to-end benches share: Bench_Item instances
// with keys Id and Slot, S01..S10 and U01..U10, and Tags[].
#pragma once

#include <cstdio>
#include <string>

namespace bench {

inline std::string generateMof(int instances) {
    std::string mof = "#pragma namespace(\"root/cimv2\")\nclass Bench_Item {\n  [Key] string Id;\n  [Key] uint32 Slot;\n";
    char line[160];
    for (int i = 1; i <= 10; ++i) {
        std::snprintf(line, sizeof line, "  string S%02d;\n  uint32 U%02d;\n", i, i);
        mof += line;
    }
    mof += "  string Tags[];\n};\n";
    for (int n = 0; n < instances; ++n) {
        std::snprintf(line, sizeof line, "instance of Bench_Item {\n  Id = \"item-%05d\";\n  Slot = %d;\n", n, n % 64);
        mof += line;
        for (int i = 1; i <= 10; ++i) {
            std::snprintf(line, sizeof line, "  S%02d = \"text %02d of item %05d\";\n  U%02d = %d;\n", i, i, n, i,
                          n * 10 + i);
            mof += line;
        }
        mof += "  Tags = {\"red\", \"green\", \"blue\"};\n};\n";
    }
    return mof;
}

}  // namespace bench
