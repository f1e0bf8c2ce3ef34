# Settings for ndk-build (see Android.mk). The platform is the oldest one that the NDK still supports.
# The functions that the library takes from the platform (device/*.c) are older than any NDK.
APP_ABI := armeabi-v7a
APP_PLATFORM := android-21
APP_STL := c++_static
