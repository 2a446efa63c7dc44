# Entry points: `make demo` runs the guided tour, `make test` builds and runs the tests.
# Each installs what it needs on Debian 12 first (apt-get; quiet when all is present).

BUILD      ?= build
BUILD_TYPE ?= RelWithDebInfo
CMAKE_ARGS ?=
JOBS       ?= $(shell nproc)

.PHONY: all deps configure build test test-sanitize demo clean

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The same suite with AddressSanitizer and UndefinedBehaviorSanitizer, in its own folder.
test-sanitize:
	@$(MAKE) --no-print-directory test BUILD=build-sanitize BUILD_TYPE=Debug CMAKE_ARGS="$(CMAKE_ARGS) -DTALVEX_SANITIZE=ON"

demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target talvex-call talvex-echo-server example_one_call example_attachments example_cancel_read
	@scripts/demo.sh $(BUILD)

clean:
	rm -rf build build-sanitize
