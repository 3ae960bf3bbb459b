// Minimal broker objects for the conversion tests that need no broker: a
// string object, an object path whose to-string text is fixed, a datetime
// whose string form is fixed, and an array of data items. Each counts its
// releases so tests can see what the code under test gave back.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "cimxml/local.h"

namespace fakes {

inline int g_releases = 0;

inline CIMCStatus ok() { return CIMCStatus{0, nullptr}; }

struct String : CIMCString {
    explicit String(const char* text, bool heap = false) : heapOwned(heap) {
        hdl = const_cast<char*>(text);
        ft = &table;
    }
    bool heapOwned;
    static CIMCStatus releaseFn(CIMCString* s) {
        ++g_releases;
        if (static_cast<String*>(s)->heapOwned) delete static_cast<String*>(s);
        return ok();
    }
    static char* chars(const CIMCString* s, CIMCStatus*) { return static_cast<char*>(s->hdl); }
    static constexpr CIMCStringFT table{1, releaseFn, nullptr, chars};
};

// An object path whose only working operation is toString.
struct Path : CIMCObjectPath {
    explicit Path(const char* text) : text(text) {
        hdl = nullptr;
        ft = &table;
    }
    std::string text;
    static CIMCString* toString(const CIMCObjectPath* op, CIMCStatus*) {
        return new String(static_cast<const Path*>(op)->text.c_str(), true);
    }
    static CIMCObjectPathFT makeTable() {
        CIMCObjectPathFT t{};
        t.ftVersion = 1;
        t.toString = toString;
        return t;
    }
    static inline const CIMCObjectPathFT table = makeTable();
};

struct DateTime : CIMCDateTime {
    explicit DateTime(const char* text) : text(text) {
        hdl = nullptr;
        ft = &table;
    }
    std::string text;
    static CIMCString* format(const CIMCDateTime* dt, CIMCStatus*) {
        return new String(static_cast<const DateTime*>(dt)->text.c_str(), true);
    }
    static constexpr CIMCDateTimeFT table{1, nullptr, nullptr, nullptr, format, nullptr};
};

// An array of data items; elements flagged `failing` report an error status.
struct Array : CIMCArray {
    Array() {
        hdl = nullptr;
        ft = &table;
    }
    std::vector<CIMCData> items;
    std::vector<bool> failing;
    void add(CIMCType type, CIMCValue v, CIMCValueState state = 0, bool fail = false) {
        items.push_back(CIMCData{type, state, v});
        failing.push_back(fail);
    }
    static CIMCCount size(const CIMCArray* a, CIMCStatus*) {
        return static_cast<CIMCCount>(static_cast<const Array*>(a)->items.size());
    }
    static CIMCData at(const CIMCArray* a, CIMCCount i, CIMCStatus* rc) {
        const Array* self = static_cast<const Array*>(a);
        if (rc) *rc = CIMCStatus{self->failing[i] ? 1 : 0, nullptr};
        return self->items[i];
    }
    static constexpr CIMCArrayFT table{1, nullptr, nullptr, size, nullptr, at, nullptr};
};

}  // namespace fakes
