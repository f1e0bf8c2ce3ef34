package com.quenthra.orvane;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/**
 * Identifiers and records of Quenthra Orvane v2's parameter commands; pure packing, no Android.
 *
 * <p>A value in units is sent as an integer, see each identifier: level -0.45 of band 3 goes as the
 * two values 3 and -45. All bytes are in the device's own order, which {@code byte[]} arguments of
 * the framework keep as they are.
 */
public final class OrvaneRecords {
    // generated: java-identifiers
    public static final String UUID_TEXT = "d92c3a90-3e26-11e2-a25f-0800200c9a66";
    public static final String TYPE_TEXT = "aa48cf24-9ae1-4045-acb9-4fe1e156475b";

    /** 0 off, 1 on */
    public static final int PARAM_PLAYBACKGAIN_ENABLE = 0x20002;

    /** 0 to 10 times 100 */
    public static final int PARAM_PLAYBACKGAIN_RATIO = 0x20003;

    /** 0 to 127 (factor) times 100 */
    public static final int PARAM_PLAYBACKGAIN_VOLUME = 0x20004;

    /** 0 to 127 (factor) times 100 */
    public static final int PARAM_PLAYBACKGAIN_MAXGAIN = 0x20005;

    /** 0 off, 1 on */
    public static final int PARAM_EQUALIZER_ENABLE = 0x20006;

    /** band 0 to 9, then -1 to 1 (level) times 100 */
    public static final int PARAM_EQUALIZER_BANDLEVEL = 0x20007;

    /** 0 off, 1 on */
    public static final int PARAM_ENHANCER_ENABLE = 0x20008;

    /** 0 to 4 (factor) times 100 */
    public static final int PARAM_ENHANCER_PROCESS = 0x20009;

    /** 0 to 4 times 100 */
    public static final int PARAM_ENHANCER_LOCONTOUR = 0x2000A;

    /** 0 to 16 (factor) times 100 */
    public static final int PARAM_OUTPUT_GAIN = 0x2000B;

    /** 0 to 1 (full scale) times 100; at first 0.9999, which can't be sent: 100 is the nearest */
    public static final int PARAM_LIMITER_GATE = 0x2000C;

    /** 0 to 1 */
    public static final int PARAM_SET_MODE = 0x20001;

    /** 0 off, 1 on */
    public static final int PARAM_SET_TIMESTAMP_ENABLE = 0x9001;

    /** answers 4 bytes */
    public static final int PARAM_GET_VERSION = 0x8001;

    /** answers 0 or 1 */
    public static final int PARAM_GET_ENABLED = 0x8002;

    /** answers 0 or 1 */
    public static final int PARAM_GET_READY = 0x8003;

    /** answers 0 or 1 */
    public static final int PARAM_GET_PROCESSING = 0x8004;

    /** answers 0 or 1 */
    public static final int PARAM_GET_MODE = 0x8005;

    /** answers Hz */
    public static final int PARAM_GET_SAMPLING_RATE = 0x8006;

    /** answers count */
    public static final int PARAM_GET_CHANNELS = 0x8007;
    // end generated

    public static final int MAX_VALUES = 4;

    /** Status of a reply that isn't one: too short, or without a value. */
    public static final int REFUSED = -22;

    // -40 dB first.
    private static final byte[] LEVELS = {
        // generated: levels
        -99, -99, -99, -99, -98, -98, -98, -98, -97, -97,
        -97, -96, -96, -96, -95, -94, -94, -93, -92, -91,
        -90, -89, -87, -86, -84, -82, -80, -78, -75, -72,
        -68, -65, -60, -55, -50, -44, -37, -29, -21, -11,
        0, 6, 13, 21, 29, 39, 50, 62, 76, 91
        // end generated
    };

    private OrvaneRecords() {}

    /** The words one after the other, as the parameter or the value of {@code setParameter}. */
    public static byte[] words(int... words) {
        ByteBuffer buffer = ByteBuffer.allocate(4 * words.length).order(ByteOrder.nativeOrder());
        for (int word : words) buffer.putInt(word);
        return buffer.array();
    }

    /**
     * Data of a whole set-parameter command.
     *
     * @param values 1 to {@link #MAX_VALUES}
     * @throws IllegalArgumentException for another number of values
     */
    public static byte[] set(int id, int... values) {
        if (values.length < 1 || values.length > MAX_VALUES)
            throw new IllegalArgumentException("1 to 4 values");
        int[] record = new int[4 + values.length];
        record[1] = 4;
        record[2] = 4 * values.length;
        record[3] = id;
        System.arraycopy(values, 0, record, 4, values.length);
        return words(record);
    }

    /** Data of a whole get-parameter command, whose reply takes 20 bytes. */
    public static byte[] get(int id) {
        return words(0, 4, 4, id);
    }

    /** Status of a reply to a get-parameter command: 0, and {@link #value} holds, or negative. */
    public static int status(byte[] reply) {
        if (reply.length < 4) return REFUSED;
        int status = word(reply, 0);
        if (status != 0) return status;
        return reply.length >= 20 && word(reply, 2) == 4 ? 0 : REFUSED;
    }

    /** Value of a reply whose {@link #status} is 0. */
    public static int value(byte[] reply) {
        return word(reply, 4);
    }

    /** One of the words in {@code bytes}. */
    public static int word(byte[] bytes, int index) {
        return ByteBuffer.wrap(bytes).order(ByteOrder.nativeOrder()).getInt(4 * index);
    }

    /**
     * The value to send as {@link #PARAM_EQUALIZER_BANDLEVEL} for a gain in whole decibels. Below
     * -40 the band is mute (-100), above 9 it has the highest level (100, 9.5 dB).
     */
    public static int levelOfDb(int decibels) {
        if (decibels < -40) return -100;
        return decibels > 9 ? 100 : LEVELS[decibels + 40];
    }
}
