// The enumeration fixture the end-to-end benches share: Bench_Item instances
// with keys Id and Slot, S01..S10 and U01..U10, and Tags[]; and the name of
// one of them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cimxml/records.h"

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

// The name of one generated item (item-00042), as a caller builds it.
inline InstanceName* itemName() {
    auto* name = static_cast<InstanceName*>(std::calloc(1, sizeof(InstanceName)));
    name->className = static_cast<ClassName*>(std::calloc(1, sizeof(ClassName)));
    name->className->name = strdup("Bench_Item");
    const char* keys[][3] = {{"Id", "item-00042", "string"}, {"Slot", "42", "numeric"}};
    KeyBinding** tail = &name->keyBindings;
    for (auto& k : keys) {
        auto* b = *tail = static_cast<KeyBinding*>(std::calloc(1, sizeof(KeyBinding)));
        b->name = strdup(k[0]);
        b->keyValue = static_cast<KeyValue*>(std::calloc(1, sizeof(KeyValue)));
        b->keyValue->value = strdup(k[1]);
        b->keyValue->valueType = strdup(k[2]);
        tail = &b->next;
    }
    return name;
}

}  // namespace bench
