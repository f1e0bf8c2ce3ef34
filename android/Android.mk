# The module libqth_orvane_ics_NOVFP, for a platform tree of Android 4.0's time or for ndk-build.
#
# The sources are C++20, which the compiler of such a tree (GCC 4.4 to 4.6) can't read. There the
# module is a prebuilt file. Put the library that the preset arm-softfloat makes, or one from an NDK,
# at android/prebuilt/libqth_orvane_ics_NOVFP.so. Without that file the module is built from the
# sources, which needs a tree or an NDK with clang 14 or newer:
#   ndk-build NDK_PROJECT_PATH=. APP_BUILD_SCRIPT=android/Android.mk \
#     NDK_APPLICATION_MK=android/Application.mk
ORVANE_ANDROID_PATH := $(call my-dir)
ORVANE_PREBUILT := prebuilt/libqth_orvane_ics_NOVFP.so

include $(CLEAR_VARS)
LOCAL_MODULE := libqth_orvane_ics_NOVFP
LOCAL_MODULE_TAGS := optional
LOCAL_MODULE_PATH := $(TARGET_OUT_SHARED_LIBRARIES)/soundfx

ifneq ($(wildcard $(ORVANE_ANDROID_PATH)/$(ORVANE_PREBUILT)),)

LOCAL_PATH := $(ORVANE_ANDROID_PATH)
LOCAL_SRC_FILES := $(ORVANE_PREBUILT)
LOCAL_MODULE_CLASS := SHARED_LIBRARIES
LOCAL_MODULE_SUFFIX := .so
include $(BUILD_PREBUILT)

else

LOCAL_PATH := $(ORVANE_ANDROID_PATH)/..
LOCAL_C_INCLUDES := $(LOCAL_PATH)
LOCAL_SRC_FILES := $(filter-out platform/log_stderr.cpp,$(patsubst $(LOCAL_PATH)/%,%,$(wildcard \
  $(foreach folder,platform host unit effects dsp dsp/softfloat,$(LOCAL_PATH)/$(folder)/*.cpp))))
# Arithmetic is scalar, and each product and sum is rounded by itself. NEON would flush subnormal
# numbers, and a fused multiply-add would round only once. Mathematics functions are called and not
# evaluated by the compiler, so the run-time library computes every filter design. Newer NDKs use NEON
# whatever LOCAL_ARM_NEON says, so the options name a unit without it.
LOCAL_ARM_MODE := arm
LOCAL_ARM_NEON := false
LOCAL_CFLAGS := -O2 -mfpu=vfpv3-d16 -ffp-contract=off -fvisibility=hidden -U_FORTIFY_SOURCE \
  -ffunction-sections -fdata-sections -fno-unwind-tables -fno-asynchronous-unwind-tables \
  -fno-builtin-sin -fno-builtin-cos -fno-builtin-exp -fno-builtin-pow -fno-builtin-sinf \
  -fno-builtin-cosf -fno-builtin-powf -fno-builtin-logf
LOCAL_CPPFLAGS := -std=c++20 -fno-exceptions -fno-rtti
# cmake/library.cmake says why each of these is needed.
LOCAL_LDFLAGS := -Wl,--version-script=$(LOCAL_PATH)/cmake/exports.map -Wl,-Bsymbolic \
  -Wl,--hash-style=both -Wl,--gc-sections -Wl,--as-needed -Wl,-z,relro -Wl,-z,now
ifdef NDK_ROOT
LOCAL_LDLIBS := -llog -lm
else
LOCAL_SHARED_LIBRARIES := liblog libm
endif
include $(BUILD_SHARED_LIBRARY)

endif
