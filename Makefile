# The project's commands. `make run` and `make test` need nothing but make on a bare Debian 12.
MAKEFLAGS += --no-print-directory
JOBS ?= $(shell nproc)

.PHONY: run test bench docs format lint check clean

run: build/build.ninja
	@cmake --build build --parallel $(JOBS) --target kestrel_cli
	@echo "--- examples/first/typical.ks:"
	@build/bin/kestrel run examples/first/typical.ks

test: build/build.ninja
	@cmake --build build --parallel $(JOBS)
	@ctest --preset release --parallel $(JOBS)

docs: build/build.ninja
	@cmake --build build --parallel $(JOBS) --target kestrel_cli
	@build/bin/kestrel functions --markdown > docs/builtins.md

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

lint:
	@tools/lint

check:
	@tools/check

clean:
	@rm -rf build build-*

build/build.ninja: | install-packages
	@cmake --preset release

.PHONY: install-packages
install-packages:
	@tools/install-packages build
