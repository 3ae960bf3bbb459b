// Helpers shared by the parser tests: layouts of one reply, a structural
// comparison of record trees, and a parse that captures standard output.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cimxml/lifecycle.h"
#include "cimxml/parser.h"
#include "model/record_table.h"

namespace parsertest {

using cimxml::model::describe;
using cimxml::model::FieldKind;
using cimxml::model::RecordId;

// The reply as deployed brokers send it: a line break after every tag that is
// followed by another tag (so an empty element holds only a line break).
inline std::string lineBroken(const std::string& compact) {
    std::string out;
    for (std::size_t i = 0; i < compact.size(); ++i) {
        out += compact[i];
        if (compact[i] == '>' && i + 1 < compact.size() && compact[i + 1] == '<') out += '\n';
    }
    return out;
}

// Pretty-printed: every tag on its own line, indented by depth; text stays
// beside its tags. Not for texts holding CDATA sections.
inline std::string indented(const std::string& compact) {
    std::string out;
    int depth = 0;
    bool afterText = false;
    for (std::size_t i = 0; i < compact.size();) {
        if (compact[i] != '<') {
            std::size_t j = compact.find('<', i);
            out.append(compact, i, j - i);
            i = j;
            afterText = true;
            continue;
        }
        std::size_t j = compact.find('>', i) + 1;
        std::string tag = compact.substr(i, j - i);
        i = j;
        bool closing = tag[1] == '/';
        bool leaf = tag[tag.size() - 2] == '/' || tag[1] == '?';
        if (closing) --depth;
        if (!out.empty() && !(closing && afterText)) out += "\n" + std::string(static_cast<std::size_t>(depth) * 2, ' ');
        out += tag;
        if (!closing && !leaf) ++depth;
        afterText = false;
    }
    return out;
}

// Deep structural equality over the record descriptors; `where` names the
// first difference.
inline bool sameTree(RecordId id, const void* a, const void* b, std::string& where, const std::string& path = "") {
    const auto& d = describe(id);
    int index = 0;
    while (a || b) {
        std::string here = path + "/" + d.name + "[" + std::to_string(index) + "]";
        if (!a || !b) {
            where = here + " present on one side only";
            return false;
        }
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            const char* fa = static_cast<const char*>(a) + f.offset;
            const char* fb = static_cast<const char*>(b) + f.offset;
            switch (f.kind) {
                case FieldKind::String:
                case FieldKind::StringFirst:
                case FieldKind::StringNoClone: {
                    const char* sa = *reinterpret_cast<char* const*>(fa);
                    const char* sb = *reinterpret_cast<char* const*>(fb);
                    if ((sa == nullptr) != (sb == nullptr) || (sa && std::strcmp(sa, sb) != 0)) {
                        where = here + "." + f.name;
                        return false;
                    }
                    break;
                }
                case FieldKind::Record:
                case FieldKind::Borrowed:
                    if (!sameTree(f.child, *reinterpret_cast<void* const*>(fa), *reinterpret_cast<void* const*>(fb), where,
                                  here + "." + f.name))
                        return false;
                    break;
                case FieldKind::Int16:
                    if (std::memcmp(fa, fb, 2) != 0) return where = here + "." + f.name, false;
                    break;
                case FieldKind::Int32:
                    if (std::memcmp(fa, fb, 4) != 0) return where = here + "." + f.name, false;
                    break;
                case FieldKind::Next:
                    break;
            }
        }
        if (!d.isList) break;
        a = *reinterpret_cast<void* const*>(static_cast<const char*>(a) + d.nextOffset);
        b = *reinterpret_cast<void* const*>(static_cast<const char*>(b) + d.nextOffset);
        ++index;
    }
    return true;
}

struct Parsed {
    CIM* root;
    std::string out;
};

inline Parsed parseCapturing(const std::string& text) {
    testing::internal::CaptureStdout();
    CIM* root = parseXML(text.c_str());
    std::fflush(stdout);
    return Parsed{root, testing::internal::GetCapturedStdout()};
}

// The response envelope around an IRETURNVALUE's content.
inline std::string imethodReply(const std::string& op, const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?><CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">"
           "<MESSAGE ID=\"4711\" PROTOCOLVERSION=\"1.0\"><SIMPLERSP><IMETHODRESPONSE NAME=\"" +
           op + "\"><IRETURNVALUE>" + content + "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>";
}

inline IReturnValue* returnValueOf(CIM* root) {
    if (!root || !root->message || !root->message->simpleRsp || !root->message->simpleRsp->iMethodResponse) return nullptr;
    return root->message->simpleRsp->iMethodResponse->iReturnValue;
}

template <typename T>
int chainLength(const T* head) {
    int n = 0;
    for (; head; head = head->next) ++n;
    return n;
}

}  // namespace parsertest
