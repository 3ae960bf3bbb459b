// Shared by the benches: a generated ~50 MB EnumerateInstances reply
// (20,000 VALUE.NAMEDINSTANCE, each an INSTANCENAME with 2 KEYBINDINGs and an
// INSTANCE with 20 PROPERTY and 1 PROPERTY.ARRAY, one element a line, the way
// deployed brokers send it), pugixml loading it as the baseline, and
// resident-memory probes.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <pugixml.hpp>

#include <cstring>
#include <fstream>
#include <string>

namespace bench {

constexpr int kInstances = 20000;

// An EnumerateInstances reply of `instances` instances (about 2.5 KB each).
inline std::string makeReply(int instances) {
    std::string s;
    s.reserve(static_cast<std::size_t>(instances) * 2600 + 4096);
    s += "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
         "<MESSAGE ID=\"1001\" PROTOCOLVERSION=\"1.0\">\n<SIMPLERSP>\n"
         "<IMETHODRESPONSE NAME=\"EnumerateInstances\">\n<IRETURNVALUE>\n";
    for (int i = 0; i < instances; ++i) {
        std::string id = std::to_string(i);
        s += "<VALUE.NAMEDINSTANCE>\n<INSTANCENAME CLASSNAME=\"CIM_ComputerSystemElement\">\n"
             "<KEYBINDING NAME=\"CreationClassName\">\n"
             "<KEYVALUE VALUETYPE=\"string\">CIM_ComputerSystemElement</KEYVALUE>\n</KEYBINDING>\n"
             "<KEYBINDING NAME=\"Name\">\n<KEYVALUE VALUETYPE=\"string\">element-";
        s += id;
        s += "</KEYVALUE>\n</KEYBINDING>\n</INSTANCENAME>\n<INSTANCE CLASSNAME=\"CIM_ComputerSystemElement\">\n";
        for (int p = 0; p < 20; ++p) {
            s += "<PROPERTY NAME=\"Property_";
            s += std::to_string(p);
            s += p % 4 == 0 ? "\" TYPE=\"uint32\">\n<VALUE>" : "\" TYPE=\"string\">\n<VALUE>";
            if (p % 4 == 0)
                s += std::to_string(i * 20 + p);
            else
                s += "Value &amp; text of element " + id;
            s += "</VALUE>\n</PROPERTY>\n";
        }
        s += "<PROPERTY.ARRAY NAME=\"Dedicated\" TYPE=\"uint16\">\n<VALUE.ARRAY>\n"
             "<VALUE>2</VALUE>\n<VALUE>3</VALUE>\n<VALUE>15</VALUE>\n<VALUE>21</VALUE>\n"
             "</VALUE.ARRAY>\n</PROPERTY.ARRAY>\n</INSTANCE>\n</VALUE.NAMEDINSTANCE>\n";
    }
    s += "</IRETURNVALUE>\n</IMETHODRESPONSE>\n</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
    return s;
}

inline const std::string& reply() {
    static const std::string text = makeReply(kInstances);
    return text;
}

inline long statusKb(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.compare(0, std::strlen(key), key) == 0) return std::stol(line.substr(std::strlen(key) + 1));
    return -1;
}

// Returns the resident memory before the call, after resetting the peak.
inline long resetPeak() {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    return statusKb("VmRSS");
}

// The options libXMLParser gives pugixml.
constexpr unsigned kPugiOptions = pugi::parse_default | pugi::parse_ws_pcdata_single;

// pugixml loading the reply into its own DOM: the baseline the benches
// compare with.
inline void pugixmlLoad(benchmark::State& state) {
    const std::string& text = reply();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_buffer(text.data(), text.size(), kPugiOptions, pugi::encoding_utf8))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

}  // namespace bench
