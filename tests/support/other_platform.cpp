// All that the tool can see of a platform that is not the stand-in.
#include "platform/quill_process.h"

unsigned int QuillGetProcId() { return 1; }
