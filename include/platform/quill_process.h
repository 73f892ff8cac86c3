// The product platform's process library, as far as the plug-in uses it. Only the low 16 bits of
// each result are used. Any thread may call either function. The plug-in does not catch exceptions
// of these functions.
#pragma once

// Identity of the calling process within the product.
unsigned int QuillGetProcId();

// Number of the calling process among the processes of one identity.
unsigned int QuillGetProcHandle();
