# Two commands for a new user:
#   make test   installs what is missing (Debian), builds and runs every test
#   make demo   (comes with the command-line tool)
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= 2

# Debian packages the build needs.
PACKAGES := cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev \
            libvorbis-dev libogg-dev libspeexdsp-dev sox vorbis-tools

.PHONY: all deps configure build test clean

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = "0" ]; then \
	    echo "Installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else \
	    echo "Missing packages. Run:"; \
	    echo "  sudo apt-get install -y$$missing"; \
	    exit 1; \
	  fi; \
	fi

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD_DIR)
