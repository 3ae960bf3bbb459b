// Helpers shared by the parser tests: layouts of one reply, a structural
// comparison of record trees, and a parse that captures standard output.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
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

// A record tree on one line, from the record descriptors: {field=value ...}
// per node, NULL pointers and zero numbers left out, strings quoted, list
// nodes back to back. Equal dumps are equal trees.
inline std::string dump(RecordId id, const void* record) {
    const auto& d = describe(id);
    std::string out;
    for (; record; record = d.isList ? *reinterpret_cast<void* const*>(static_cast<const char*>(record) + d.nextOffset)
                                     : nullptr) {
        std::string fields;
        for (int i = 0; i < d.fieldCount; ++i) {
            const auto& f = d.fields[i];
            const char* at = static_cast<const char*>(record) + f.offset;
            std::string v;
            if (f.kind == FieldKind::Int16 || f.kind == FieldKind::Int32) {
                std::int32_t n = 0;
                if (f.kind == FieldKind::Int16) {
                    std::int16_t s16;
                    std::memcpy(&s16, at, 2);
                    n = s16;
                } else {
                    std::memcpy(&n, at, 4);
                }
                if (n) v = std::to_string(n);
            } else if (f.kind == FieldKind::Record || f.kind == FieldKind::Borrowed) {
                v = dump(f.child, *reinterpret_cast<const void* const*>(at));
            } else if (f.kind != FieldKind::Next) {
                const char* s = *reinterpret_cast<const char* const*>(at);
                if (s) v = "'" + std::string(s) + "'";
            }
            if (!v.empty()) fields += (fields.empty() ? "" : " ") + std::string(f.name) + "=" + v;
        }
        out += "{" + fields + "}";
    }
    return out;
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
