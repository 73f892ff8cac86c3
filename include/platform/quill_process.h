// The product platform's process library, as far as the plug-in uses it. Only the low 16 bits of
// either result are used. Any thread may call either function; the plug-in lets anything thrown
// pass.
#pragma once

// Identity of the calling process within the product.
unsigned int QuillGetProcId();

// Number of the calling process among those of one identity.
unsigned int QuillGetProcHandle();
