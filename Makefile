# The commands of every day. Each first installs what is missing, so that a fresh machine needs no other step.
#
#   make demo     a tour of the library against the simulated cloud, in a private view of this machine
#   make console  the device's account page against the simulated cloud, until Ctrl-C (examples/console)
#   make test     builds everything and runs all tests; TESTS=REGEX runs those whose names match
#   make test-browser   a sign-in in a headless browser; its pictures of every page are in build/dev/screenshots
#   make faults   every fault at every place of each operation: a quarter of an hour (`make test` tries a part)
#   make bench    the benchmarks, with the build that ships
#   make deb      the Debian packages, in build/deb
#   make fuzz     every fuzz target for SECONDS=10; TESTS=REGEX those whose names match
#   make format   lays out the C and C++ files
#   make clean    removes the build trees
#
# PRESET=asan and the like choose another preset of CMakePresets.json.
PRESET ?= dev
JOBS ?= $(shell nproc)
TESTS ?= .
SECONDS ?= 10
BUILD = build/$(PRESET)

privileged = $(shell [ "$$(id -u)" = 0 ] || sudo -n true 2>/dev/null && echo yes)$(VARNKIVO_SANDBOX)
sources = git ls-files -z --cached --others --exclude-standard -- '*.h' '*.cc' '*.c' | xargs -0 -r clang-format

.PHONY: help build demo console test test-browser faults bench deb fuzz format check-format clean

build:
	@scripts/bootstrap
	@[ -e $(BUILD)/build.ninja ] || cmake --preset $(PRESET)
	@cmake --build $(BUILD) -j $(JOBS) $(if $(TARGET),--target $(TARGET))

help:
	@sed -n 's/^#   //p' Makefile

demo: TARGET = varnkivo-sim varnkivo_tool varnddnsinfo
demo: build
	@$(if $(privileged),,VARNKIVO_SANDBOX=user) VARNKIVO_BUILD=$(CURDIR)/$(BUILD) scripts/sandbox scripts/demo

console: TARGET = varnkivo-console varnkivo-sim varnkivo_tool
console: build
	@$(if $(privileged),,VARNKIVO_SANDBOX=user) VARNKIVO_BUILD=$(CURDIR)/$(BUILD) scripts/sandbox scripts/console

test: build
	@$(if $(privileged),:,echo 'make test needs root, or sudo without a password: owners and ids are tested for real' >&2; exit 1)
	@ctest --test-dir $(BUILD) -j $(JOBS) -R '$(TESTS)' --no-tests=error --output-on-failure

test-browser: TARGET = varnkivo-sim varnkivo_tool varnkivo-console
test-browser: build
	@scripts/bootstrap --browser
	@VARNKIVO_BUILD=$(CURDIR)/$(BUILD) scripts/sandbox tests/browser/test_browser.py

faults: build
	@for part in 1 2; do scripts/sandbox $(BUILD)/tests/faults/varnkivo-faults --sample $$part/2 $(FAULTS) & ids="$$ids $$!"; done; \
	bad=0; for id in $$ids; do wait $$id || bad=1; done; exit $$bad

bench: PRESET = release
bench: TARGET = varnkivo-bench
bench: build
	@scripts/sandbox $(BUILD)/bench/varnkivo-bench

deb:
	@scripts/build-packages

fuzz:
	@scripts/fuzz --seconds $(SECONDS) '$(TESTS)'

format:
	@$(sources) -i

check-format:
	@$(sources) --dry-run --Werror

clean:
	@rm -rf build
