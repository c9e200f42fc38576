# voraimage: the two commands of the README (make run, make test) and the CI steps.
# Every target installs what it needs first (scripts/install-deps.sh, idempotent).
.PHONY: all deps build run test test-asan fuzz-smoke bench clean

BUILD      ?= build
BUILD_ASAN ?= build-asan
BUILD_FUZZ ?= build-fuzz
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
FUZZ_SECONDS ?= 45
SAMPLES    := $(filter-out tests/data/iff/bad-%,$(wildcard tests/data/iff/*.iff))

all: build

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORA_TESTS=ON
	cmake --build $(BUILD) -j $(JOBS)

# The main job on the bundled samples: describe each native image (chunk tree, tiles, JSON),
# convert one to PNG, to a QR4-packed native image and to SGI, resample and blur it, grade it with a LUT, and list the
# frame sequences among the samples.
run: build
	$(BUILD)/vimg info $(SAMPLES)
	$(BUILD)/vimg info --chunks tests/data/iff/rgba8_70x66_rle.iff
	$(BUILD)/vimg info --json tests/data/iff/rgb8_40x30_rle.iff
	$(BUILD)/vimg convert tests/data/iff/rgba8_70x66_rle.iff $(BUILD)/sample.png
	$(BUILD)/vimg convert $(BUILD)/sample.png $(BUILD)/sample_qr4.iff --compress qr4
	$(BUILD)/vimg resize tests/data/iff/rgba8_70x66_rle.iff $(BUILD)/sample_big.png --size 280x264 --filter lanczos3
	$(BUILD)/vimg blur $(BUILD)/sample.png $(BUILD)/sample_blur.png --percent 5
	VORA_FILTER_PATH=tests/data/filters $(BUILD)/vimg filters
	$(BUILD)/vimg info --tiles $(BUILD)/sample_qr4.iff
	$(BUILD)/vimg convert $(BUILD)/sample.png $(BUILD)/sample.sgi --bits 16
	$(BUILD)/vimg info $(BUILD)/sample.sgi tests/data/sgi/pnmtosgi_rgb16_40x16_rle.sgi
	$(BUILD)/vimg lut info tests/data/lut/sat12_cinespace_9.csp
	$(BUILD)/vimg lut apply tests/data/lut/sat12_cinespace_9.csp tests/data/iff/rgba8_70x66_rle.iff $(BUILD)/graded.png
	$(BUILD)/vimg psd info tests/data/psd/agpsd_layers_rle.psd
	$(BUILD)/vimg psd extract tests/data/psd/agpsd_layers_zip.psd --layer "multiply op128" $(BUILD)/layer.png
	$(BUILD)/vimg psd extract tests/data/psd/im_gray8_layers_rle.psd --composite $(BUILD)/composite.png
	$(BUILD)/vimg psd composite tests/data/psd/agpsd_layers_rle.psd $(BUILD)/blended.png
	$(BUILD)/vimg psd create $(BUILD)/made.psd --layer "Background=$(BUILD)/sample.png" \
	  --layer "shade=$(BUILD)/sample_blur.png@10,8:blend=multiply:opacity=160"
	$(BUILD)/vimg psd info $(BUILD)/made.psd
	@mkdir -p $(BUILD)/frames && for f in 1 2 3 5 8; do \
	  cp tests/data/iff/rgb8_40x30_rle.iff $(BUILD)/frames/shot.000$$f.iff; done
	$(BUILD)/vimg seq $(BUILD)/frames
	$(BUILD)/vimg seq frame $(BUILD)/frames/shot.0001.iff 42
	$(BUILD)/vimg movie $(BUILD)/shot.avi '$(BUILD)/frames/shot.####.iff' --fps 24 --compressor mjpeg --quality 90
	$(BUILD)/vimg info $(BUILD)/shot.avi
	$(BUILD)/vimg plugins
	$(BUILD)/vimg convert tests/data/iff/rgba8_70x66_rle.iff $(BUILD)/sample.webp
	$(BUILD)/vimg convert $(BUILD)/sample.png $(BUILD)/sample.tif --bits 16 --set compression=lzw
	$(BUILD)/vimg convert tests/data/plugins/gif/im_2frames.gif $(BUILD)/from_gif.iff

test: build
	cd $(BUILD) && ctest -j $(JOBS) --output-on-failure

test-asan: deps
	cmake -S . -B $(BUILD_ASAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVORA_TESTS=ON -DVORA_SANITIZE=ON
	cmake --build $(BUILD_ASAN) -j $(JOBS)
	cd $(BUILD_ASAN) && export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1; \
	  ctest -j $(JOBS) --output-on-failure > asan.log 2>&1; status=$$?; cat asan.log; \
	  if [ $$status -ne 0 ] && grep -q "Tracer caught signal" asan.log && ! grep -q -E "ERROR: (Address|Leak)Sanitizer|runtime error" asan.log; then \
	    echo "test-asan: LeakSanitizer's tracer crashed at exit on a stale dynamic-TLS entry (no finding): the failed tests again, address and undefined-behaviour checks on, leak check off"; \
	    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 ctest --rerun-failed --output-on-failure; status=$$?; \
	  fi; exit $$status

# Each fuzz target for FUZZ_SECONDS, seeded with the test data of its format.
fuzz-smoke: deps
	CC=clang-14 CXX=clang++-14 cmake -S . -B $(BUILD_FUZZ) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORA_FUZZ=ON
	cmake --build $(BUILD_FUZZ) -j $(JOBS)
	@set -e; for t in $(BUILD_FUZZ)/fuzz/fuzz_*; do \
	  [ -x "$$t" ] || continue; name=$$(basename $$t); \
	  corpus=$(BUILD_FUZZ)/corpus/$$name; mkdir -p $$corpus; \
	  seeds=$$(awk -v n=$$name '$$1 == n { print $$2 }' fuzz/seeds.list); [ -n "$$seeds" ] || seeds=$$corpus; \
	  echo "fuzz-smoke: $$name for $(FUZZ_SECONDS)s"; \
	  $$t -max_total_time=$(FUZZ_SECONDS) -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
	    -artifact_prefix=$(BUILD_FUZZ)/ $$corpus $$seeds > $(BUILD_FUZZ)/$$name.log 2>&1 \
	    || { tail -n 40 $(BUILD_FUZZ)/$$name.log; echo "fuzz-smoke: $$name found a problem"; exit 1; }; \
	  tail -n 6 $(BUILD_FUZZ)/$$name.log; \
	done

# Every side-by-side comparer, then the codec benchmarks (minutes; results: bench/RESULTS.md).
bench: build
	@set -e; for s in bench/compare_*.sh; do bash $$s; done; $(BUILD)/bench/bench_codecs

clean:
	rm -rf $(BUILD) $(BUILD_ASAN) $(BUILD_FUZZ)
