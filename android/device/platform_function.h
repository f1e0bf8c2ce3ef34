/* Stand-ins for the platform's libraries, to link against where there is no NDK: the names that the
 * library takes from each, all of them there in Android 4.0, and nothing behind them. */
#define PLATFORM_FUNCTION(name) \
    void name(void);            \
    void name(void) {}
