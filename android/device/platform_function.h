/* Makes stand-ins for the platform's libraries, to link against without an NDK. They have the names
 * that the library takes from each, and empty functions. Android 4.0 has all of these functions. */
#define PLATFORM_FUNCTION(name) \
    void name(void);            \
    void name(void) {}
