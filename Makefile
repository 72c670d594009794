# The verbs for people. How things are built stands in CMakePresets.json, what has to be installed in
# tools/debian-packages.txt.
.NOTPARALLEL:
.PHONY: help demo test soak bench check build format clean packages

JOBS := $(shell nproc)
PRESET := dev

help:
	@echo 'make demo     install what is missing, build, and watch the store keep real records'
	@echo 'make test     install what is missing, build, and run the whole suite'
	@echo 'make soak     run the tests again and again under load, to find what fails rarely; takes'
	@echo '              FILTER=tests ROUNDS=number MINUTES=number PRESET=dev, asan or tsan'
	@echo 'make bench    measure, each figure beside its floor, into build/bench/summary.json'
	@echo 'make check    formatting, lint, layers, texts, and every public header on its own'
	@echo 'make build    build the host, optimised, as build/zem'
	@echo 'make format   format every source file'
	@echo 'make clean    remove what was built'

packages:
	@tools/install-packages

build: packages
	cmake --preset release
	cmake --build --preset release --target zem-host
	ln -sfn release/bin/zem build/zem

demo: build
	tools/demo

test: packages
	cmake --preset dev
	cmake --build --preset dev
	ctest --preset dev --parallel $(JOBS)

soak: packages
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	tools/soak build/$(PRESET) $(if $(FILTER),--filter='$(FILTER)') $(if $(ROUNDS),--rounds=$(ROUNDS)) \
		$(if $(MINUTES),--minutes=$(MINUTES)) $(if $(PROCESSES),--processes=$(PROCESSES)) \
		$(if $(LIMIT),--limit=$(LIMIT))

bench: packages
	cmake --preset release
	cmake --build --preset release
	cmake --build --preset release --target zem-bench

check: packages
	tools/format --check
	tools/check-layers
	tools/check-texts
	cmake --preset dev
	cmake --build --preset dev --target zem-header-check
	cmake --preset asan
	tools/lint build/asan

format: packages
	tools/format

clean:
	rm -rf build
