# The two set-up commands. Both install what is missing, configure and build.
BUILD      ?= build
TEST_BUILD ?= build-test
JOBS       ?= $(shell nproc)

.PHONY: all run test deps build build-test format clean

all: build

deps:
	@tools/install-deps.sh

build: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

run: build
	./$(BUILD)/tappix

build-test: deps
	@cmake -S . -B $(TEST_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTAPPIX_SANITIZE=ON >/dev/null
	@cmake --build $(TEST_BUILD) -j $(JOBS)

test: build-test
	ctest --test-dir $(TEST_BUILD) --output-on-failure -j $(JOBS)

format:
	@git ls-files '*.cpp' '*.h' | xargs -r clang-format -i

clean:
	rm -rf $(BUILD) $(TEST_BUILD)
