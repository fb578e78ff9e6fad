# Two commands matter on a fresh machine: `make demo` and `make test`. Both install what is missing first.
PACKAGES := g++ cmake ninja-build pkg-config python3 libsqlite3-dev libicu-dev libsodium-dev libzstd-dev \
            libxxhash-dev libroaring-dev libstemmer-dev libgtest-dev
JOBS ?= $(shell nproc)

.PHONY: all deps build demo test tidy bench clean

all: build

# Says what it installs; does nothing, and needs no rights, when all is there.
deps:
	@missing=""; for p in $(PACKAGES) $(EXTRA_PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'ok installed' || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing Debian packages:$$missing"; \
	  if [ "$$(id -u)" = 0 ]; then as_root=""; else as_root="sudo"; fi; \
	  $$as_root apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $$as_root apt-get install -y -qq --no-install-recommends $$missing; fi

build: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

demo: deps
	cmake --preset release -DKAVRIN_TESTS=OFF -B build/demo
	cmake --build build/demo -j $(JOBS)
	./build/demo/examples/pkgdb/pkgdb

test: build
	ctest --preset release -j $(JOBS)

tidy: deps
	python3 tests/tidy.py

bench: EXTRA_PACKAGES := libbenchmark-dev liblua5.4-dev
bench: deps
	cmake --preset release -DKAVRIN_TESTS=OFF -DKAVRIN_BENCH=ON -B build/bench
	cmake --build build/bench -j $(JOBS)
	@for b in build/bench/bench/*_bench; do $$b || exit 1; done

clean:
	rm -rf build
