# Two commands for a fresh machine: `make demo` and `make test`.
BUILD_DIR ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps configure build test demo format clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

format:
	@clang-format -i $$(git ls-files '*.cpp' '*.h')

# Benchmarks: each of the library's figures beside its raw anchor, in one run.
.PHONY: bench
bench: configure
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target seal_bench
	@$(BUILD_DIR)/bench/seal_bench

clean:
	@rm -rf $(BUILD_DIR)
