# Reads Android.mk as a build system would, and prints its sources and options, one word a line.
#   make -s -f print_module.mk ANDROID=FOLDER ORVANE_PREBUILT=none
my-dir = $(ANDROID)
CLEAR_VARS := /dev/null
BUILD_SHARED_LIBRARY := /dev/null
TARGET_OUT_SHARED_LIBRARIES := /system/lib
NDK_ROOT := ndk
include $(ANDROID)/Android.mk
print:
	@printf '%s\n' $(LOCAL_MODULE) $(LOCAL_MODULE_PATH) $(LOCAL_SRC_FILES) $(LOCAL_CFLAGS) \
	  $(LOCAL_CPPFLAGS) $(LOCAL_LDFLAGS) $(LOCAL_LDLIBS)
