# The commands of this project; "make help" lists them. CMake does the work (CMakePresets.json).

.DEFAULT_GOAL := build
PREFIX ?= /usr/local
DESTDIR ?=
build_dir := build/release
dependencies := @sh packaging/dependencies

.PHONY: build check demo demo-live bench install clean help

## build      build everything in release mode into build/release (the default)
build:
	$(dependencies) build
	@cmake --preset release --log-level=WARNING
	@cmake --build --preset release

## check      build and run all tests: 64-bit, 32-bit, mixed, and under the sanitizers
check:
	$(dependencies) build check
	@tests/check

## demo       learn hosts from a recorded capture and follow them from a second process
demo: build
	@demo/demo.sh $(build_dir)

## demo-live  the same on a live Linux bridge in network namespaces (root)
demo-live: build
	$(dependencies) live
	@demo/demo-live.sh $(build_dir)

## bench      run the benchmarks beside their peers
bench:
	$(dependencies) build bench
	@bench/run

## install    install under DESTDIR and PREFIX (/usr/local)
install: build
	@DESTDIR="$(DESTDIR)" cmake --install $(build_dir) --prefix "$(PREFIX)"

## clean      remove everything that was built
clean:
	@rm -rf build

## help       this list
help:
	@sed -n 's/^## /  make /p' Makefile
