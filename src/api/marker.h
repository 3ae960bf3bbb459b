// Where the back-end marker is looked for. Always "/etc/Binary.txt" in the
// shipped library; unit tests (which link the static archive) point it at a
// file of their own so they never touch /etc.
#pragma once

namespace cimxml {
extern const char* g_markerPath;
}
