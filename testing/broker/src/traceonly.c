/* A broker library with a trace mask and a factory, but no _sfcb_debug and
 * no environment to give: its factory fails with rc 1 and a message. */
#include <stdlib.h>
#include <string.h>

__attribute__((visibility("default"))) long _sfcb_trace_mask = 0;

__attribute__((visibility("default"))) void* _Create_TraceOnly_Env(const char* id, unsigned int options, int* rc,
                                                                   char** msg) {
  (void)id;
  (void)options;
  if (rc) *rc = 1;
  if (msg) {
    static const char text[] = "TraceOnly: no environment";
    *msg = malloc(sizeof text);
    if (*msg) memcpy(*msg, text, sizeof text);
  }
  return NULL;
}
