# The two set-up commands. Both install what is missing, configure and build.
BUILD      ?= build
TEST_BUILD ?= build-test
JOBS       ?= $(shell nproc)

# Lets clones and work trees of the project share ccache's compiled objects.
export CCACHE_BASEDIR   ?= $(CURDIR)
export CCACHE_NOHASHDIR ?= true

PACKAGE_BUILD ?= build-release
FUZZ_BUILD   ?= build-fuzz
FUZZ_SECONDS ?= 60

# Another Debian release for `make debian-root`: RELEASE's root, kept, runs CMD in this tree.
RELEASE ?= trixie
CMD     ?= make test

.PHONY: all run test deps build build-test fuzz format clean package package-check debian-root

all: build

# What building and running Tappix needs; `make test` adds the test tools.
deps:
	@tools/install-deps.sh

build: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

run: build
	./$(BUILD)/tappix

build-test:
	@tools/install-deps.sh --test
	@cmake -S . -B $(TEST_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTAPPIX_SANITIZE=ON \
		-DTAPPIX_TESTS=ON -DTAPPIX_BENCH=ON >/dev/null
	@cmake --build $(TEST_BUILD) -j $(JOBS)

test: build-test
	ctest --test-dir $(TEST_BUILD) --output-on-failure -j $(JOBS)

# A Debian package of a release build installed under /usr, for the release this runs on,
# checked by tools/check-package.sh and installed into a fresh root of the same release by
# tools/check-package-install.sh.
package:
	@tools/install-deps.sh --package
	@cmake -S . -B $(PACKAGE_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_INSTALL_PREFIX=/usr -DTAPPIX_TESTS=OFF -DTAPPIX_BENCH=OFF >/dev/null
	@cmake --build $(PACKAGE_BUILD) -j $(JOBS)
	@rm -f $(PACKAGE_BUILD)/tappix_*.deb
	@cd $(PACKAGE_BUILD) && cpack -G DEB >/dev/null
	@$(MAKE) --no-print-directory package-check

package-check:
	@tools/check-package.sh $(PACKAGE_BUILD)/tappix_*.deb
	@tools/check-package-install.sh $(PACKAGE_BUILD)/tappix_*.deb

# libFuzzer targets (clang) for every decoder, each run for FUZZ_SECONDS.
fuzz:
	@tools/install-deps.sh --fuzz
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DTAPPIX_FUZZ=ON -DTAPPIX_TESTS=OFF -DTAPPIX_BENCH=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz-targets
	@tools/run-fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

debian-root:
	@tools/debian-root.sh $(RELEASE) $(CMD)

format:
	@git ls-files '*.cpp' '*.h' | xargs -r clang-format -i

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(FUZZ_BUILD) $(PACKAGE_BUILD)
