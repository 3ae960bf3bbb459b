// A whole request document in either wire mode.
#pragma once

#include "cimxml/records.h"

namespace cimxml::writer {

// The default mode is exactly Gen_CIM. The standard mode writes DSP0201
// text: escaped values, regular attributes, KEYVALUE TYPE, one NAMESPACE per
// path component, embedded instances as escaped text. *text stays NULL when
// memory runs out.
void writeDocument(CIM* cim, char** text, bool standard) noexcept;

}  // namespace cimxml::writer
