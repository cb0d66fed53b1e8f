# The README's commands. `make test` is what CI runs.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps configure build test demo bench install package check-package clean format check-format

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)

configure: $(BUILD_DIR)/build.ninja

build: deps configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 900

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

bench: build
	@bash bench/run.sh $(BUILD_DIR) $(BENCH_FLAGS)

install: build
	cmake --install $(BUILD_DIR)

# The Debian package, build/ombrelo_<version>-1_<arch>.deb, and its check.
package: build
	cmake --build $(BUILD_DIR) --target package

check-package: package
	@bash scripts/check-package.sh $(BUILD_DIR)

clean:
	rm -rf $(BUILD_DIR)

# Formats every C++ file of the tree; check-format fails, listing the files, when one is not formatted.
format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

check-format:
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
