// Preloaded into a program, ends it with exit code 99 if it frees a block that still contains the
// text of the environment variable FREED_SECRET.
#include <malloc.h>
#include <string.h>
#include <unistd.h>

#include <cstdlib>

extern "C" void FreeOfTheLibrary(void* block) asm("__libc_free");

extern "C" void free(void* block) {
  const char* const secret = std::getenv("FREED_SECRET");
  if (block != nullptr && secret != nullptr &&
      memmem(block, malloc_usable_size(block), secret, strlen(secret)) != nullptr) {
    _exit(99);
  }
  FreeOfTheLibrary(block);
}
