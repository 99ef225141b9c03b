# Thin wrappers around CMake; `make test` is what CI runs on a clean clone.
BUILD_DIR ?= build
CMAKE_FLAGS ?=
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all deps configure build brimlog test bench run demo format clean

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

# Builds the command alone (not the tests or benchmarks), so a first run on a fresh clone is quick.
brimlog: configure
	cmake --build $(BUILD_DIR) -j $(JOBS) --target brimlog

# The report of your own tools' logs, in your own database.
run: brimlog
	$(BUILD_DIR)/bin/brimlog report

# A report of a generated sample home, in a throw-away database.
demo: brimlog
	@examples/make-demo-home examples/home
	@db=$$(mktemp -d); \
	  $(BUILD_DIR)/bin/brimlog report --home examples/home --db $$db/usage.db && echo && \
	  $(BUILD_DIR)/bin/brimlog report tools --no-sync --home examples/home --db $$db/usage.db && echo && \
	  $(BUILD_DIR)/bin/brimlog status --offline --home examples/home --db $$db/usage.db \
	    --shared-dir $$db/shared; \
	  status=$$?; rm -rf $$db; exit $$status

bench: build
	bench/run-bench $(BUILD_DIR)

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
