# Front door for building, testing and running Corvel. Every target first makes sure the
# build dependencies are installed (scripts/install-deps returns at once when they are);
# test, package, format and lint also install what tests and tools need (--dev).
BUILD      ?= build
JOBS       ?= 2
CMAKE_ARGS ?=

.PHONY: build deps dev-deps configure test scan gui screenshots install package format format-check lint test-asan test-tsan bench fuzz clean

build: configure
	cmake --build $(BUILD) -j$(JOBS)

deps:
	@scripts/install-deps

dev-deps:
	@scripts/install-deps --dev

configure: deps
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

# A build folder configured before GoogleTest was installed is configured again.
test: dev-deps
	@$(MAKE) --no-print-directory configure
	@test -f $(BUILD)/tests/CTestTestfile.cmake || cmake -S . -B $(BUILD)
	cmake --build $(BUILD) -j$(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

test-asan:
	$(MAKE) test BUILD=build-asan CMAKE_ARGS="-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVEL_SANITIZE=address"

test-tsan:
	$(MAKE) test BUILD=build-tsan CMAKE_ARGS="-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVEL_SANITIZE=thread"

# Builds only the command line (and the resources it reads).
scan: configure
	cmake --build $(BUILD) -j$(JOBS) --target corvel
ifeq ($(DIR),)
	@examples/make-demo-tree $(BUILD)/demo >/dev/null
	$(BUILD)/bin/corvel scan --settings $(BUILD)/demo-settings.plist $(BUILD)/demo
else
	$(BUILD)/bin/corvel scan "$(DIR)"
endif

# Installs under PREFIX (default /usr/local; DESTDIR is honoured): bin/corvel (and
# bin/corvel-gui with its desktop entry and icon when Qt 6 is there), share/corvel, the man
# pages, the bash and zsh completions, and the scan reminder's systemd user timer and
# autostart entry.
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# The Debian package of what "make install" installs, under /usr: $(BUILD)/corvel_*.deb,
# its Depends worked out from the shared libraries (dpkg-shlibdeps, from dpkg-dev).
package: dev-deps
	@$(MAKE) --no-print-directory build
	cd $(BUILD) && cpack -G DEB

gui: build
	@if [ -x $(BUILD)/bin/corvel-gui ]; then $(BUILD)/bin/corvel-gui; \
	else echo "make gui: the desktop application is not built yet."; exit 1; fi

# Every page and panel of the desktop application as PNG, rendered offscreen from a scan
# of the demo tree, into docs/screenshots/.
screenshots: build
	@examples/make-demo-tree $(BUILD)/screenshot-tree >/dev/null
	QT_QPA_PLATFORM=offscreen CORVEL_RESOURCES=$(CURDIR)/resources \
		$(BUILD)/bin/corvel-screenshots docs/screenshots $(BUILD)/screenshot-tree

bench: build
	@for b in $(BUILD)/bin/bench_*; do [ -x "$$b" ] && "$$b"; done

# Every folder of C++ code; format-check changes nothing and fails on the first
# difference (CI runs it before the tests).
FORMAT_DIRS = src cli gui tests bench fuzz

format: dev-deps
	find $(FORMAT_DIRS) -name '*.cpp' -o -name '*.h' | xargs clang-format -i

format-check: dev-deps
	find $(FORMAT_DIRS) -name '*.cpp' -o -name '*.h' | xargs clang-format --dry-run -Werror

# Layers only use downwards (scripts/check-layers), clang-tidy finds nothing in src, cli and
# tests (every finding is an error), and clang's thread-safety analysis passes over src and
# cli. Builds first: some tests include generated files.
lint: dev-deps build
	scripts/lint $(BUILD) $(JOBS)

# libFuzzer harnesses: built with clang in build-fuzz/, each run for FUZZ_SECONDS on its
# corpus (fuzz/corpus/<harness>/); crashing inputs land in fuzz/crashes/<harness>/.
FUZZ_SECONDS ?= 60
FUZZ_MAX_LEN ?= 65536
FUZZ_HARNESSES ?= property_list predicate itunes_parser photo_parser plan_reader

fuzz: deps
	@scripts/install-fuzz-deps
	@test -f build-fuzz/build.ninja || cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DCMAKE_CXX_COMPILER=clang++ -DCORVEL_FUZZ=ON -DCORVEL_WERROR=OFF
	cmake --build build-fuzz -j$(JOBS) $(foreach h,$(FUZZ_HARNESSES),--target $(h)_fuzzer)
	@failed=""; for h in $(FUZZ_HARNESSES); do \
		mkdir -p fuzz/corpus/$$h fuzz/crashes/$$h build-fuzz/corpus/$$h; \
		echo "== $$h: $(FUZZ_SECONDS) s"; \
		build-fuzz/bin/$${h}_fuzzer build-fuzz/corpus/$$h fuzz/corpus/$$h fuzz/regressions/$$h \
			-max_total_time=$(FUZZ_SECONDS) -max_len=$(FUZZ_MAX_LEN) -rss_limit_mb=2048 -timeout=25 \
			-artifact_prefix=fuzz/crashes/$$h/ -print_final_stats=1 || failed="$$failed $$h"; \
	done; \
	if [ -n "$$failed" ]; then echo "make fuzz: findings in:$$failed (see fuzz/crashes/)"; exit 1; fi

clean:
	rm -rf build build-asan build-tsan build-fuzz
