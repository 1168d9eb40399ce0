# Two commands for a fresh machine: `make demo` and `make test`.
# Sub-makes (cmake --build) inherit this: no "Entering directory" lines.
MAKEFLAGS += --no-print-directory

BUILD_DIR ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps configure build test demo docs format clean test-sanitize

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# The whole suite again, built with AddressSanitizer (LeakSanitizer on) and
# UndefinedBehaviorSanitizer; any finding fails its test.
SAN_DIR ?= build-sanitize
test-sanitize: deps
	@cmake -S . -B $(SAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=address,undefined \
		-DKX_BUILD_BENCH=OFF >/dev/null
	@cmake --build $(SAN_DIR) -j $(JOBS)
	@cd $(SAN_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
		UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --output-on-failure -j $(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

# The API reference of the exported headers (build/docs/html); any Doxygen
# warning, an undocumented exported name included, fails it.
docs: deps
	@bash scripts/docs.sh $(BUILD_DIR)/docs

format:
	@clang-format -i $$(git ls-files '*.cpp' '*.h')

# Benchmarks: each of the library's figures beside its raw anchor, in one run.
.PHONY: bench
bench: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target seal_bench
	@$(BUILD_DIR)/bench/seal_bench

clean:
	@rm -rf $(BUILD_DIR)
