package com.quenthra.orvane;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/**
 * The Quenthra Orvane effect on one running stereo sound of 16-bit samples. Frames come out in the
 * order in which they went in, and as many: the first after about 64 ms, the last with drain().
 *
 * <p>process(), drain(), waitingFrames(), flush() and close() are called by one thread at a time.
 * set(), applyPreset() and setBypass() may be called by any thread at any time, also after close(),
 * when they do nothing. Only the constructor allocates.
 */
public final class OrvaneStream implements AutoCloseable {
    /** The lowest rate of a stream, in frames per second. */
    public static final int LOWEST_RATE_HZ = 32000;
    /** The highest rate of a stream, in frames per second. */
    public static final int HIGHEST_RATE_HZ = 48000;
    /** Stands for no preset: every processor is off. */
    public static final int NO_PRESET = -1;
    /** The bytes of one frame: left and right, 16 bits each, in the machine's order of bytes. */
    public static final int FRAME_BYTES = 4;

    static {
        System.loadLibrary("orvane_app");
    }

    private long handle;

    /**
     * Creates a stream whose automatic gain has settled on silence, which takes tens of milliseconds.
     *
     * @param rateHz frames per second, LOWEST_RATE_HZ to HIGHEST_RATE_HZ
     * @param preset the name of a preset, or null to begin with every processor off
     * @throws IllegalArgumentException if there is no such preset, the rate is outside the range, or
     *     there is not enough memory
     */
    public OrvaneStream(int rateHz, String preset) {
        this(rateHz, preset, true);
    }

    /** With settles = false, the automatic gain fades in during the first two seconds instead. */
    OrvaneStream(int rateHz, String preset, boolean settles) {
        if (rateHz < LOWEST_RATE_HZ || rateHz > HIGHEST_RATE_HZ)
            throw new IllegalArgumentException("rate: " + rateHz);
        handle = create(rateHz, preset, settles);
    }

    /**
     * Takes as many whole frames from `in` as `out` has room for, writes what is ready to `out`, and
     * moves both positions. Each buffer must be direct, and they must not be the same memory.
     *
     * @param in 16-bit samples, left and right in turn
     * @param out takes the processed samples in the same form
     */
    public void process(ByteBuffer in, ByteBuffer out) {
        checkDirect(in);
        checkDirect(out);
        final int frames = Math.min(in.remaining(), out.remaining()) / FRAME_BYTES;
        final int given = process(handle(), in, in.position(), out, out.position(), frames);
        in.position(in.position() + frames * FRAME_BYTES);
        out.position(out.position() + given * FRAME_BYTES);
    }

    /**
     * Writes frames that still wait to `out`, a direct buffer, and moves its position.
     *
     * @param out takes samples as process() writes them
     */
    public void drain(ByteBuffer out) {
        checkDirect(out);
        final int frames = out.remaining() / FRAME_BYTES;
        final int given = drain(handle(), out, out.position(), frames);
        out.position(out.position() + given * FRAME_BYTES);
    }

    /**
     * Returns how many frames came in and have not come out yet.
     *
     * @return a number of frames, 0 or more
     */
    public int waitingFrames() {
        return waiting(handle());
    }

    /** Drops the frames that wait, as after a seek. The automatic gain stays where it is. */
    public void flush() {
        flush(handle());
    }

    /** Frees the memory. Then only close() and what any thread may call are allowed. */
    @Override
    public synchronized void close() {
        if (handle != 0) destroy(handle);
        handle = 0;
    }

    /**
     * Returns the number of a parameter, or a negative number if there is none of this key. Keys are
     * those of settings files; the bands of the equalizer are "eq-0" to "eq-9".
     *
     * @param key the key of the parameter
     * @return a number for set()
     */
    public static native int find(String key);

    /**
     * Returns the number of a preset, or a negative number if none has this name.
     *
     * @param name the name of a preset
     * @return a number for applyPreset()
     */
    public static native int findPreset(String name);

    /**
     * Returns the name of a preset, or null beyond the last one. Numbers begin with 0.
     *
     * @param number the number of a preset
     * @return the name that findPreset() knows
     */
    public static native String presetName(int number);

    /**
     * Sets a parameter that find() returned. Values beyond its range become the nearest in it.
     *
     * @param parameter a number that find() returned
     * @param value in the units of settings files
     */
    public synchronized void set(int parameter, double value) {
        if (handle != 0) set(handle, parameter, value);
    }

    /**
     * Sets everything to what a preset says. For NO_PRESET, every processor is switched off.
     *
     * @param preset a number that findPreset() returned, or NO_PRESET
     */
    public synchronized void applyPreset(int preset) {
        if (handle != 0) applyPreset(handle, preset);
    }

    /**
     * Passes the sound through with the same delay, or ends that. Fades.
     *
     * @param bypassed true to let the sound pass
     */
    public synchronized void setBypass(boolean bypassed) {
        if (handle != 0) setBypass(handle, bypassed);
    }

    private long handle() {
        if (handle == 0) throw new IllegalStateException("the stream is closed");
        return handle;
    }

    private static void checkDirect(ByteBuffer buffer) {
        if (!buffer.isDirect() || buffer.order() != ByteOrder.nativeOrder())
            throw new IllegalArgumentException("the buffer is not direct and in native order");
    }

    private static native long create(int rateHz, String preset, boolean settles);
    private static native void destroy(long handle);
    private static native int process(
            long handle, ByteBuffer in, int inAt, ByteBuffer out, int outAt, int frames);
    private static native int drain(long handle, ByteBuffer out, int outAt, int frames);
    private static native int waiting(long handle);
    private static native void flush(long handle);
    private static native void set(long handle, int parameter, double value);
    private static native void applyPreset(long handle, int preset);
    private static native void setBypass(long handle, boolean bypassed);
}
