# A thin front for the CMake presets; see README.md.

BUILD_PACKAGES = g++ cmake ninja-build libboost-dev libboost-regex-dev libace-dev libcli11-dev \
                 nlohmann-json3-dev libssl-dev libarchive-dev libfmt-dev
DEB_PACKAGES   = dpkg-dev file
TEST_PACKAGES  = $(BUILD_PACKAGES) $(DEB_PACKAGES) libgtest-dev libgmock-dev binutils clang \
                 parallel
BENCH_PACKAGES = $(BUILD_PACKAGES) libbenchmark-dev
FUZZ_PACKAGES  = $(BUILD_PACKAGES) clang libclang-rt-14-dev llvm
LINT_PACKAGES  = $(TEST_PACKAGES) $(BENCH_PACKAGES) clang-format clang-tidy

INSTALL      = @cmake/install-packages.sh
RELEASE      = build/release
TARN_HOST    = $(RELEASE)/bin/tarn_host
FUZZ_SECONDS = 60
PREFIX       = /usr/local

.PHONY: help run release test test-asan-ubsan test-tsan bench fuzz fuzz-msan lint format install \
        uninstall package check-reproducible clean

# Targets share build folders and the system's packages, and each target runs as many compilers as
# there are processors.
.NOTPARALLEL:

help:
	@echo "make run        build the release plug-in and show it: statements, a trace, shapes, a configuration"
	@echo "make release    build the release plug-in and the tool in $(RELEASE)"
	@echo "make test       build and run all tests (test-asan-ubsan, test-tsan: under sanitizers)"
	@echo "make bench      time both engines of the normalizer (BENCH_ARGS: Google Benchmark's options)"
	@echo "make fuzz       run each fuzzer for FUZZ_SECONDS=$(FUZZ_SECONDS) seconds"
	@echo "make fuzz-msan  the same for the scanner under MemorySanitizer"
	@echo "make lint       clang-format and clang-tidy (LINT_SINCE=COMMIT: tidy what changed since then)"
	@echo "make format     rewrite the sources as clang-format wants them"
	@echo "make install    install under PREFIX=$(PREFIX); make uninstall removes the same files"
	@echo "make package    make a .deb in $(RELEASE)"
	@echo "make check-reproducible  do two builds in two folders give the same bytes? (minutes; needs git)"
	@echo "make clean      remove all build folders, and with them the list of files for make uninstall"

run: release
	@cmake/show-examples.sh $(RELEASE)

release:
	$(INSTALL) $(BUILD_PACKAGES)
	cmake --preset release
	cmake --build --preset release

test:
	$(INSTALL) $(TEST_PACKAGES)
	cmake --preset dev
	cmake --build --preset dev
	ctest --preset dev

test-asan-ubsan test-tsan: test-%:
	$(INSTALL) $(TEST_PACKAGES)
	cmake --preset $*
	cmake --build --preset $*
	ctest --preset $*

bench:
	$(INSTALL) $(BENCH_PACKAGES)
	cmake --preset bench
	cmake --build --preset bench
	build/bench/bin/normalize_bench $(BENCH_ARGS)

fuzz:
	$(INSTALL) $(FUZZ_PACKAGES)
	cmake --preset fuzz
	cmake --build --preset fuzz
	@mkdir -p build/fuzz/corpus/normalize build/fuzz/corpus/ssl_mode
	build/fuzz/bin/fuzz_normalize -max_total_time=$(FUZZ_SECONDS) -max_len=4096 -dict=fuzz/sql.dict \
	  -artifact_prefix=build/fuzz/ build/fuzz/corpus/normalize fuzz/corpus/normalize
	build/fuzz/bin/fuzz_ssl_mode -max_total_time=$(FUZZ_SECONDS) -max_len=256 -dict=fuzz/ssl_mode.dict \
	  -artifact_prefix=build/fuzz/ build/fuzz/corpus/ssl_mode

fuzz-msan:
	$(INSTALL) $(FUZZ_PACKAGES)
	cmake --preset fuzz-msan
	cmake --build --preset fuzz-msan
	@mkdir -p build/fuzz-msan/corpus
	build/fuzz-msan/bin/fuzz_scanner_msan -max_total_time=$(FUZZ_SECONDS) -max_len=4096 -dict=fuzz/sql.dict \
	  -artifact_prefix=build/fuzz-msan/ build/fuzz-msan/corpus fuzz/corpus/normalize

SOURCES = $(shell cmake/list-sources.sh)

# With LINT_SINCE, "no-other" keeps an empty list from meaning all files: it is the name of none. The
# standard error of clang-tidy counts suppressed warnings of system headers, which looks like a fault.
lint:
	$(INSTALL) $(LINT_PACKAGES)
	@clang-format --dry-run -Werror $(SOURCES)
	cmake --preset lint
	cmake/check-built.sh build/lint/compile_commands.json
	run-clang-tidy -quiet -p build/lint $(if $(LINT_SINCE),$$(cmake/changed-sources.sh $(LINT_SINCE)) no-other) \
	  2>build/lint/errors.txt || { grep -v 'warnings\? generated' build/lint/errors.txt >&2; exit 1; }
	@echo "lint: clean"

format:
	$(INSTALL) clang-format
	clang-format -i $(SOURCES)

install: release
	@cmake/install-tree.sh install $(RELEASE) "$(PREFIX)"

uninstall:
	@cmake/install-tree.sh uninstall $(RELEASE)

package: release
	$(INSTALL) $(DEB_PACKAGES)
	cd $(RELEASE) && cpack -G DEB

check-reproducible:
	$(INSTALL) $(BUILD_PACKAGES) $(DEB_PACKAGES)
	@cmake/check-reproducible.sh

clean:
	rm -rf build
