/* A host in plain C: no C++ header, no C++ library of its own, the product called by slot number.
 * Usage: plain_c_host LIBRARY. One line a fact; exits with 1 at the first that does not hold. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* An object of a class without data: a pointer to its dispatch table. */
struct product {
  void (*const* slots)(void);
};

enum slot { LOG_ERROR, LOG_WARNING, LOG_DEBUG, MAP_ERROR_CODE, NORMALIZE_SQL = 8 };

typedef struct product* entry_function(void);
typedef void log_function(struct product*, const char* message);
typedef int64_t map_function(struct product*, int status);

/* libstdc++'s std::string of the C++11 ABI, which the plug-in and its host have to agree on: a text
 * of up to 15 bytes lies in `local`, where `bytes` then points, and a longer one in a block of
 * operator new, which is malloc's where nobody replaces it. */
struct cxx_string {
  char* bytes;
  size_t length;
  union {
    char local[16];
    size_t capacity;
  } store;
};
typedef void normalize_function(struct product*, struct cxx_string* sql);

static void check(int holds, const char* fact) {
  printf("%s  %s\n", holds ? "pass" : "FAIL", fact);
  if (!holds) exit(EXIT_FAILURE);
}

static void check_normalize(struct product* product, const char* sql, const char* canonical,
                            const char* fact) {
  struct cxx_string text;
  text.length = strlen(sql);
  text.bytes = text.store.local;
  if (text.length >= sizeof text.store.local) {
    text.store.capacity = text.length;
    text.bytes = malloc(text.length + 1);
    if (text.bytes == NULL) abort();
  }
  memcpy(text.bytes, sql, text.length + 1);
  ((normalize_function*)product->slots[NORMALIZE_SQL])(product, &text);
  check(text.length == strlen(canonical) && strcmp(text.bytes, canonical) == 0, fact);
  if (text.bytes != text.store.local) free(text.bytes);
}

/* The log, which is standard error on the stand-in platform, must show the three messages. */
static void check_log(struct product* product) {
  char log[4096];
  FILE* const file = tmpfile();
  const int old = dup(STDERR_FILENO);
  if (file == NULL || old < 0) abort();
  dup2(fileno(file), STDERR_FILENO);
  ((log_function*)product->slots[LOG_ERROR])(product, "first");
  ((log_function*)product->slots[LOG_WARNING])(product, "second");
  ((log_function*)product->slots[LOG_DEBUG])(product, "third");
  dup2(old, STDERR_FILENO);
  close(old);
  rewind(file);
  log[fread(log, 1, sizeof log - 1, file)] = '\0';
  fclose(file);
  check(strstr(log, "ERROR 666667") != NULL && strstr(log, "LogError: first\n") != NULL,
        "LogError");
  check(strstr(log, "LogWarning: second\n") != NULL, "LogWarning");
  check(strstr(log, "LogDebug: third\n") != NULL, "LogDebug");
}

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  setenv("TARN_LOG_LEVEL", "debug", 1);
  void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  check(library != NULL, "dlopen");

  entry_function* entry = NULL;
  void* const symbol = dlsym(library, "GetProductInterfaceForVESTA");
  check(symbol != NULL, "dlsym");
  memcpy(&entry, &symbol, sizeof entry);
  struct product* const product = entry();
  check(product != NULL && product == entry(), "one product");

  map_function* const map = (map_function*)product->slots[MAP_ERROR_CODE];
  check(map(product, 0) == 0, "MapErrorCode of 0");
  check(map(product, -1) == INT64_C(0xB000013), "MapErrorCode of -1");
  check_log(product);
  check_normalize(product, "x=0x10", "x = 16", "NormalizeSQL of a short text");
  check_normalize(product, "a=1.50", "a = 1.5", "NormalizeSQL of another");
  check_normalize(product, "select t7.a from tab t7 where t7.b=0x1F",
                  "SELECT a FROM tab ____t1 WHERE b = 31", "NormalizeSQL of a long text");

  dlclose(library);
  check(dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD) == NULL, "unloaded by dlclose");
  return EXIT_SUCCESS;
}
