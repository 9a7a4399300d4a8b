# Front door for building, testing and running Corvel. Every target first makes sure the
# build dependencies are installed (scripts/install-deps returns at once when they are).
BUILD      ?= build
JOBS       ?= 2
CMAKE_ARGS ?=

.PHONY: build deps configure test scan gui format lint test-asan test-tsan bench clean

build: configure
	cmake --build $(BUILD) -j$(JOBS)

deps:
	@scripts/install-deps

configure: deps
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

test-asan:
	$(MAKE) test BUILD=build-asan CMAKE_ARGS="-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVEL_SANITIZE=address"

test-tsan:
	$(MAKE) test BUILD=build-tsan CMAKE_ARGS="-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVEL_SANITIZE=thread"

scan: build
ifeq ($(DIR),)
	@examples/make-demo-tree $(BUILD)/demo >/dev/null
	$(BUILD)/bin/corvel scan --settings $(BUILD)/demo-settings.plist $(BUILD)/demo
else
	$(BUILD)/bin/corvel scan "$(DIR)"
endif

gui: build
	@if [ -x $(BUILD)/bin/corvel-gui ]; then $(BUILD)/bin/corvel-gui; \
	else echo "make gui: the desktop application is not built yet."; exit 1; fi

bench: build
	@for b in $(BUILD)/bin/bench_*; do [ -x "$$b" ] && "$$b"; done

format:
	find src tests bench -name '*.cpp' -o -name '*.h' | xargs clang-format -i

lint: configure
	find src -name '*.cpp' | xargs clang-tidy -p $(BUILD) --quiet

clean:
	rm -rf build build-asan build-tsan
