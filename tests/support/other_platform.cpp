// A platform that is not the stand-in: the part of it that the tool looks at.
#include "platform/quill_process.h"

unsigned int QuillGetProcId() { return 1; }
