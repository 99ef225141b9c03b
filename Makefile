# Thin wrappers around CMake; `make test` is what CI runs on a clean clone.
BUILD_DIR ?= build
CMAKE_FLAGS ?=
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
ASAN_DIR ?= build-asan
SANITIZE := -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer

WIDGETS_PORT ?= 8717

.PHONY: all deps configure build brimlog test bench run demo widgets install-user format clean fuzz asan

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

# A report of a generated sample home in a throw-away database, its dashboard, and then its
# widgets served on 127.0.0.1:$(WIDGETS_PORT) until Ctrl-C.
demo: brimlog
	cmake --build $(BUILD_DIR) -j $(JOBS) --target brimlog-widgets
	@examples/make-demo-home examples/home
	@db=$$(mktemp -d); trap 'rm -rf "$$db"' EXIT INT TERM; \
	  $(BUILD_DIR)/bin/brimlog report --home examples/home --db $$db/usage.db && echo && \
	  $(BUILD_DIR)/bin/brimlog report tools --no-sync --home examples/home --db $$db/usage.db && echo && \
	  $(BUILD_DIR)/bin/brimlog status --offline --home examples/home --db $$db/usage.db \
	    --shared-dir $$db/shared && echo && \
	  $(BUILD_DIR)/bin/brimlog-widgets serve --port $(WIDGETS_PORT) --shared-dir $$db/shared

# The widgets of your own data (what `brimlog` last wrote), on 127.0.0.1:$(WIDGETS_PORT).
widgets: brimlog
	cmake --build $(BUILD_DIR) -j $(JOBS) --target brimlog-widgets
	$(BUILD_DIR)/bin/brimlog --offline >/dev/null
	$(BUILD_DIR)/bin/brimlog-widgets serve --port $(WIDGETS_PORT)

# brimlog and brimlog-widgets for you alone, under ~/.local, with their systemd user units
# enabled to start at login (see scripts/install-user).
install-user: brimlog
	cmake --build $(BUILD_DIR) -j $(JOBS) --target brimlog-widgets
	scripts/install-user $(BUILD_DIR)

bench: build
	bench/run-bench $(BUILD_DIR)

# The libFuzzer targets of fuzz/, built with clang in $(FUZZ_DIR), each run for FUZZ_SECONDS on a
# scratch copy of its seeds; fails when one crashes (see fuzz/README.md).
fuzz: deps
	fuzz/run-fuzz --seconds $(FUZZ_SECONDS) --build-dir $(FUZZ_DIR) --jobs $(JOBS)

# The whole test suite built with the address and undefined-behaviour sanitizers, in $(ASAN_DIR).
# The short fuzz run is left out: its targets are built with both sanitizers already.
asan: deps
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRIMLOG_WERROR=ON \
	  -DBRIMLOG_BUILD_BENCH=OFF "-DCMAKE_CXX_FLAGS=$(SANITIZE)" \
	  "-DCMAKE_EXE_LINKER_FLAGS=$(SANITIZE)" $(CMAKE_FLAGS)
	cmake --build $(ASAN_DIR) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_DIR) --output-on-failure -j $(JOBS) -LE fuzz

format:
	git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
