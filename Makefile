# The two entry points: "make run" and "make test" (see README.md).
PORT ?= 8080
BUILD_DIR := build
JOBS := $(shell nproc)

.PHONY: run test deps configure build clean

deps:
	bash scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR)

build: configure
	cmake --build $(BUILD_DIR) -j$(JOBS)

run: configure
	cmake --build $(BUILD_DIR) -j$(JOBS) --target mod_korvex korvex-gateway-sim
	PORT=$(PORT) bash scripts/run.sh

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j2

clean:
	rm -rf $(BUILD_DIR)
