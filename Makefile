# The two entry points: "make run" and "make test" (see README.md).
PORT ?= 8080
BUILD_DIR := build
JOBS := $(shell nproc)

# Opt-in sanitizer run (not part of "test"): see "Sanitizer runs" in docs/running.md.
SANITIZE_BUILD_DIR := build-asan
SANITIZE_FLAGS := -fsanitize=address,undefined -fno-omit-frame-pointer
# Instrumented code makes GCC warn about uninitialised reads that cannot happen (in
# libstdc++ <regex>, for one); they are silenced in this tree only.
SANITIZE_FLAGS += -Wno-maybe-uninitialized
SANITIZE_LINK := -fsanitize=address,undefined
SANITIZE_RUN_ROOT ?= /var/tmp/korvex-runs/sanitize

.PHONY: run test deps configure build clean sanitize-build sanitize-test bench fuzz soak deb docs

deps:
	bash scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR)

build: configure
	cmake --build $(BUILD_DIR) -j$(JOBS)

run: configure
	cmake --build $(BUILD_DIR) -j$(JOBS) --target mod_korvex korvex-gateway-sim korvex_console korvex-gateway
	PORT=$(PORT) $(BUILD_DIR)/sim/harness/korvex-gateway run --build-dir $(BUILD_DIR)

# The package, fuzz and board trees are built first, so that ctest only tests.
test: build
	cmake --build $(BUILD_DIR) --target korvex_test_trees
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j2

sanitize-build: deps
	cmake -S . -B $(SANITIZE_BUILD_DIR) -DCMAKE_C_FLAGS="$(SANITIZE_FLAGS)" -DCMAKE_CXX_FLAGS="$(SANITIZE_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE_LINK)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE_LINK)" \
	  -DCMAKE_MODULE_LINKER_FLAGS="$(SANITIZE_LINK)"
	cmake --build $(SANITIZE_BUILD_DIR) -j$(JOBS)

# Runs the whole suite against the instrumented tree with the ASan runtime preloaded into
# the server; fails when a test fails or any sanitizer report appears in a run directory
# (those run directories are kept under SANITIZE_RUN_ROOT).
sanitize-test: sanitize-build
	@rm -rf $(SANITIZE_RUN_ROOT) && mkdir -p $(SANITIZE_RUN_ROOT)
	@status=0; \
	KORVEX_SANITIZE=1 KORVEX_RUN_ROOT=$(SANITIZE_RUN_ROOT) KORVEX_WAIT_SECONDS=$${KORVEX_WAIT_SECONDS:-90} \
	  ctest --test-dir $(SANITIZE_BUILD_DIR) --output-on-failure -j2 || status=1; \
	reports=$$(find $(SANITIZE_RUN_ROOT) -path '*/sanitizer/*' -type f | sort); \
	if [ -n "$$reports" ]; then \
	  echo "sanitizer reports:"; for f in $$reports; do echo "=== $$f"; head -n 80 "$$f"; done; status=1; \
	fi; \
	if [ $$status -eq 0 ]; then echo "sanitize-test: no sanitizer reports"; fi; \
	exit $$status

# The API reference: the OpenAPI document and its one-file HTML rendering in
# $(BUILD_DIR)/docs/api/ (see "Browse the API" in README.md).
docs: configure
	cmake --build $(BUILD_DIR) --target korvex_api_spec korvex_api_html korvex_console
	@echo "HTML reference: $(BUILD_DIR)/docs/api/korvex-api.html"
	@echo "OpenAPI document: $(BUILD_DIR)/docs/api/korvex-api.openapi.json"

# Opt-in benchmark (not part of "test" or CI): see "Benchmarks" in docs/running.md.
bench: configure
	cmake --build $(BUILD_DIR) -j$(JOBS) --target korvex_bench
	$(BUILD_DIR)/bench/korvex_bench

# Soak and fault run (not part of "test" or CI): see "Soak" in docs/running.md.
soak: configure
	cmake --build $(BUILD_DIR) -j$(JOBS) --target korvex_soak
	$(BUILD_DIR)/bench/korvex_soak

# libFuzzer targets over the pure logic (clang, ASan, UBSan), FUZZ_SECONDS each.
FUZZ_SECONDS ?= 60
fuzz: deps
	bash scripts/fuzz.sh $(FUZZ_SECONDS)

# Build for the board in build-cross-$(ARCH)/, unit tests under qemu, exports checked with
# the native exports test (see docs/cross-build.md).
ARCH ?= mipsel
.PHONY: cross
cross: configure
	bash scripts/install-cross-deps.sh $(ARCH)
	cmake --build $(BUILD_DIR) -j$(JOBS) --target e2e_exports_test
	bash scripts/cross.sh $(ARCH) $(BUILD_DIR)/tests/e2e_exports_test

# Debian packages (release build, lintian-checked) into DEB_DIR: see docs/packaging.md.
DEB_DIR := build-deb
deb: deps
	bash scripts/build-deb.sh $(DEB_DIR)

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_BUILD_DIR) build-fuzz $(DEB_DIR)
