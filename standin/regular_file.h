#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <span>
#include <string>

#include "standin/error.h"

namespace tarn::standin {

// Fills `buffer` from the begin of the file at `path`, following links, as far as both reach;
// `status` is the file's. The number of bytes read; a file that filled `buffer` may be longer.
//
// Throws an Error of `code`, "NAME: REASON", also for anything that is no regular file: a FIFO or a
// device could block its reader for ever. Any thread may call.
std::size_t ReadRegularFile(const std::string& path, std::span<unsigned char> buffer,
                            struct stat& status, Code code, const std::string& name);

}  // namespace tarn::standin
