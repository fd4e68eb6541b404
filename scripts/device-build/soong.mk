# Builds the C++ modules of Android.bp on a host as Soong lays them out, from what bp_modules
# prints (OUT/modules.mk): protoc run per module with Soong's arguments, every source compiled by
# clang with Soong's include path only (local_include_dirs, the module's directory, its generated
# proto directory, the headers of the libraries it names), and each module linked.
#
# Usage: make -f soong.mk SRC=<directory of Android.bp> OUT=<build directory>
# A change in a module's flags or in these rules rebuilds everything.
build_files := $(lastword $(MAKEFILE_LIST)) $(OUT)/modules.mk
include $(OUT)/modules.mk

# ccache, where the host has it, compiles a source once for both modules when their flags differ
# only in include directories that change nothing for it.
CXX := $(shell command -v ccache) clang++
PROTOC := protoc
android_headers := /usr/include/android
android_libdir := /usr/lib/x86_64-linux-gnu/android

# What Soong passes to every C++ compile before a module's own flags: its C++ standard, no
# exceptions, no RTTI (a module's cppflags may turn them back on).
soong_cppflags := -std=gnu++20 -fno-exceptions -fno-rtti
# What Soong adds for a module with .proto sources.
soong_proto_cflags := -DGOOGLE_PROTOBUF_NO_RTTI
# Whatever a module says, warnings fail the build.
check_cflags := -Wall -Wextra -Werror

# The host library that stands in for each library a module may name: the headers the device
# library exports (a directory of links, so that a module sees only the headers of what it
# names) and what to link. A name missing here fails the build.
lib.libbase.headers := $(android_headers)/android-base
lib.libbase.link := -L$(android_libdir) -Wl,-rpath,$(android_libdir) -lbase
lib.liblog.headers := $(android_headers)/android $(android_headers)/log
lib.liblog.link := -L$(android_libdir) -Wl,-rpath,$(android_libdir) -llog
# Debian's libcutils has no system properties: the host property store takes their place.
lib.libcutils.link := $(OUT)/libcutils.a
lib.libgmock.link := -lgmock
lib.libgtest.link := -lgtest
lib.libgtest_main.link := -lgtest_main
lib.libprotobuf-cpp-full.link := -lprotobuf
lib.libprotobuf-cpp-lite.link := -lprotobuf-lite

# What Soong adds to a module by itself.
implicit.all := libc libc++ libdl libm
implicit.cc_binary :=
implicit.cc_test := libgtest_main libgtest
implicit.proto.full := libprotobuf-cpp-full
implicit.proto.lite := libprotobuf-cpp-lite
protoc_out.full := --cpp_out=
protoc_out.lite := --cpp_out=lite:

all: $(foreach m,$(modules),$(OUT)/$(m)/$(m))
# Generated sources stay, so that a second run rebuilds nothing.
.SECONDARY:

# module_rules(name): the rules of one module.
define module_rules
# Soong generates into each module's own gen/proto; modules that run protoc alike share one
# here, so that the same source compiles to the same preprocessed text in both.
$(1).gen := $(OUT)/gen/$$($(1).proto.type)/proto
$(1).protos := $$(filter %.proto,$$($(1).srcs))
$(1).sources := $$(filter-out %.proto,$$($(1).srcs))
$(1).libs := $$($(1).static_libs) $$($(1).shared_libs) $$(implicit.$$($(1).type)) \
    $$(if $$($(1).protos),$$(implicit.proto.$$($(1).proto.type)))
$(1).headers := $$(patsubst %.proto,$$($(1).gen)/%.pb.h,$$($(1).protos))
$(1).objects := $$(patsubst %,$(OUT)/$(1)/obj/%.o,$$($(1).sources)) \
    $$(patsubst %.proto,$(OUT)/$(1)/obj/gen/%.pb.cc.o,$$($(1).protos))
$(1).cxxflags := $$(soong_cppflags) $$(if $$($(1).protos),$$(soong_proto_cflags)) \
    $$($(1).cflags) $$($(1).cppflags) $$(check_cflags) \
    $$(addprefix -I$(SRC)/,$$($(1).local_include_dirs)) -I$(SRC) \
    $$(if $$($(1).protos),-I$$($(1).gen)) \
    $$(foreach lib,$$($(1).libs),$$(if $$(lib.$$(lib).headers),-I$(OUT)/include/$$(lib)))

$$(if $$(filter-out %.cpp %.cc,$$($(1).sources)),\
    $$(error $(1): sources of a kind not modelled: $$(filter-out %.cpp %.cc,$$($(1).sources))))
$$(if $$(and $$($(1).protos),$$(filter-out false,$$($(1).proto.canonical_path_from_root))),\
    $$(error $(1): only proto canonical_path_from_root: false is modelled))
$$(if $$(and $$($(1).protos),$$(filter-out full lite,$$($(1).proto.type))),\
    $$(error $(1): proto type "$$($(1).proto.type)" is not modelled))
$$(foreach lib,$$(filter $$(implicit.all),$$($(1).libs)),\
    $$(error $(1): Soong links $$(lib) by itself; leave it out))
$$(foreach lib,$$($(1).libs),$$(if $$(lib.$$(lib).link),,\
    $$(error $(1): no host library stands in for $$(lib); add it to the table in soong.mk)))

# Soong runs protoc from the module's directory.
$$($(1).gen)/%.pb.cc $$($(1).gen)/%.pb.h: $(SRC)/%.proto $$(build_files)
	@echo "  PROTOC $$*.proto"
	@mkdir -p $$($(1).gen)
	@$$(PROTOC) $$(protoc_out.$$($(1).proto.type))$$($(1).gen) -I $(SRC) $$<

$(OUT)/$(1)/obj/gen/%.o: $$($(1).gen)/% $$(build_files) | $$($(1).headers) $(OUT)/include/stamp
	@echo "  CXX    $(1) $$*"
	@mkdir -p $$(@D)
	@$$(CXX) $$($(1).cxxflags) -MMD -MP -c $$< -o $$@

$(OUT)/$(1)/obj/%.o: $(SRC)/% $$(build_files) | $$($(1).headers) $(OUT)/include/stamp
	@echo "  CXX    $(1) $$*"
	@mkdir -p $$(@D)
	@$$(CXX) $$($(1).cxxflags) -MMD -MP -c $$< -o $$@

$(1).link := $$(foreach lib,$$($(1).libs),$$(lib.$$(lib).link))
$(OUT)/$(1)/$(1): $$($(1).objects) $$(build_files) $$(filter $(OUT)/%,$$($(1).link))
	@echo "  LINK   $(1)"
	@$$(CXX) -o $$@ $$($(1).objects) $$($(1).link)

-include $$($(1).objects:.o=.d)
endef
$(foreach m,$(modules),$(eval $(call module_rules,$(m))))

# Each library's header directories, linked under one directory per library.
$(OUT)/include/stamp: $(build_files)
	@rm -rf $(OUT)/include
	@$(foreach lib,$(patsubst lib.%.headers,%,$(filter lib.%.headers,$(.VARIABLES))),\
	    mkdir -p $(OUT)/include/$(lib) && ln -s $(lib.$(lib).headers) $(OUT)/include/$(lib) &&) true
	@touch $@

# The host property store, compiled as the host build compiles it.
cutils_sources := $(wildcard $(SRC)/platform/*.cpp)
cutils_objects := $(patsubst $(SRC)/%,$(OUT)/libcutils/%.o,$(cutils_sources))
$(OUT)/libcutils/%.o: $(SRC)/% $(build_files) | $(OUT)/include/stamp
	@echo "  CXX    libcutils $*"
	@mkdir -p $(@D)
	@$(CXX) -std=gnu++17 $(check_cflags) -I$(SRC)/platform -I$(OUT)/include/libbase \
	    -I$(OUT)/include/liblog -MMD -MP -c $< -o $@
$(OUT)/libcutils.a: $(cutils_objects)
	@rm -f $@
	@ar rcs $@ $^
-include $(cutils_objects:.o=.d)
