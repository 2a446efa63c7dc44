# Entry points: `make demo` runs the guided tour, `make test` builds and runs the tests.
# Each installs what it needs on Debian 12 first (apt-get; quiet when all is present).

BUILD      ?= build
BUILD_TYPE ?= RelWithDebInfo
CMAKE_ARGS ?=
JOBS       ?= $(shell nproc)

.PHONY: all deps configure build test interop test-sanitize test-threads fuzz-smoke demo clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The interoperability tests with the heavy real peers as well (JAX-WS on a
# JDK): installs and starts them; `make test` keeps to the light ones.
interop: build
	@scripts/install-deps.sh interop
	@scripts/interop.sh $(BUILD)

# The same suite with AddressSanitizer and UndefinedBehaviorSanitizer, in its own folder.
test-sanitize:
	@$(MAKE) --no-print-directory test BUILD=build-sanitize BUILD_TYPE=Debug CMAKE_ARGS="$(CMAKE_ARGS) -DTALVEX_SANITIZE=ON"

# The thread test under ThreadSanitizer, in its own folder: only the test and
# the security library it loads are built, and any report ends the run with a
# failure. Xerces-C and OpenSSL are not instrumented; tsan.supp says why each
# of its entries is there.
TSAN_BUILD ?= build-tsan
TSAN_OPTIONS_THREADS = halt_on_error=1 second_deadlock_stack=1 history_size=4 suppressions=$(CURDIR)/tests/threads/tsan.supp
test-threads: deps
	@cmake -S . -B $(TSAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTALVEX_TSAN=ON $(CMAKE_ARGS) >/dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS) --target threads_tests VLT_Crypto_Interface
	@TSAN_OPTIONS="$(TSAN_OPTIONS_THREADS)" ctest --test-dir $(TSAN_BUILD) -L threads --output-on-failure

# Every fuzz target for FUZZ_SECONDS each (clang, libFuzzer, ASan + UBSan; build-fuzz).
FUZZ_SECONDS ?= 30
fuzz-smoke: deps
	@tests/fuzz/smoke.sh $(FUZZ_SECONDS)

demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target talvex-call talvex-echo-server example_one_call example_attachments example_cancel_read
	@scripts/demo.sh $(BUILD)

clean:
	rm -rf build build-sanitize build-tsan build-fuzz
