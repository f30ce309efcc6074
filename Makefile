# The project's commands. `make run` and `make test` need nothing but make on a bare Debian 12.
MAKEFLAGS += --no-print-directory
JOBS ?= $(shell nproc)

.PHONY: run test bench docs package manual playground format lint check clean

run: build/build.ninja
	@cmake --build build --parallel $(JOBS) --target kestrel_cli
	@echo "--- examples/calls/rate.ks, for each record of calls.csv beside it:"
	@build/bin/kestrel run examples/calls/rate.ks --records examples/calls/calls.csv --header \
		--output build/rated.csv --rejects build/rejects.txt --stats

test: build/build.ninja
	@cmake --build build --parallel $(JOBS)
	@ctest --preset release --parallel $(JOBS)

# BENCH passes options on, as in make bench BENCH="--save before.json" and, later, BENCH="--against
# before.json".
bench:
	@tools/install-packages build bench
	@cmake -S . -B build-bench -G Ninja -DKESTREL_BENCH=ON -DKESTREL_TESTS=OFF >/dev/null
	@cmake --build build-bench --parallel $(JOBS)
	@set -e; for program in build-bench/bench/*_bench; do echo "--- $$program"; $$program; done
	@build-bench/bench/kestrel_compare $(BENCH)

docs: build/build.ninja
	@cmake --build build --parallel $(JOBS) --target kestrel_cli
	@cmake --build build --parallel $(JOBS) --target modules/all
	@build/bin/kestrel functions --markdown > docs/builtins.md
	@build/bin/kestrel functions --modules > docs/modules.md
	@build/bin/kestrel explain --markdown > docs/messages.md
	@build/bin/kestrel prompt > docs/prompt.md

# Debian packages, in build/packages.
package: build/build.ninja
	@cmake --build build --parallel $(JOBS)
	@cpack --config build/CPackConfig.cmake -B build/packages

# The page build/playground.html, which needs neither a network nor a server.
playground:
	@tools/install-packages build playground
	@JOBS=$(JOBS) playground/build build/playground.html

# The site of the manual, after all its examples have run.
manual: build/build.ninja
	@cmake --build build --parallel $(JOBS) --target kestrel_cli
	@cmake --build build --parallel $(JOBS) --target modules/all
	@ctest --preset release --parallel $(JOBS) -R '^(embedding|patterns)$$|^manual\.|\.examples$$' \
		-E '^package'
	@tools/manual

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
