# Thin wrappers around CMake; `make test` is what CI runs on a clean clone.
BUILD_DIR ?= build
CMAKE_FLAGS ?=
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps configure build test bench format clean

all: build

deps:
	@scripts/install-deps

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DBRIMLOG_WERROR=ON $(CMAKE_FLAGS)

configure: deps $(BUILD_DIR)/build.ninja

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

bench: build
	bench/run-bench $(BUILD_DIR)

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
