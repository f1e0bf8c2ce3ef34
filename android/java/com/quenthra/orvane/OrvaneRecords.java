package com.quenthra.orvane;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/**
 * Identifiers and records of Quenthra Orvane v2's parameter commands. Needs no class of Android.
 *
 * <p>A value in units is sent as an integer, as the comment at each identifier says. Level -0.45 of
 * band 3 is sent as the two values 3 and -45. All bytes are in the device's byte order, because the
 * framework passes {@code byte[]} arguments on unchanged.
 */
public final class OrvaneRecords {
    // generated: java-identifiers
    /** Identifies the effect. */
    public static final String UUID_TEXT = "d92c3a90-3e26-11e2-a25f-0800200c9a66";

    /** Identifies the effect's type outside safe mode. */
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

    /** 0 to 1 (full scale) times 100; the default 0.9999 can't be sent, and 100 is nearest */
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

    /** The most values that one parameter has. */
    public static final int MAX_VALUES = 4;

    /** Status of a reply that is too short or has no value. */
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

    // 25 Hz first, band 0 first.
    private static final short[][] TERMS = {
        // generated: terms
        {868, 101, 30, 14, 17, 32, 63, 125, 250, -500},
        {795, 154, 45, 18, 18, 32, 63, 125, 250, -500},
        {681, 235, 69, 25, 20, 32, 63, 125, 250, -500},
        {530, 339, 103, 34, 22, 33, 63, 125, 250, -500},
        {324, 472, 157, 49, 26, 34, 63, 125, 250, -500},
        {74, 607, 238, 73, 33, 36, 64, 125, 250, -500},
        {-135, 664, 342, 108, 42, 38, 64, 126, 250, -500},
        {-217, 548, 470, 160, 57, 42, 65, 126, 250, -500},
        {-72, 145, 610, 243, 82, 49, 67, 126, 250, -500},
        {117, -253, 665, 348, 117, 58, 70, 127, 251, -500},
        {31, -249, 545, 476, 169, 73, 74, 128, 251, -499},
        {-76, -10, 171, 607, 248, 97, 80, 130, 252, -499},
        {61, 57, -258, 666, 359, 136, 91, 133, 252, -498},
        {-30, 59, -247, 541, 487, 189, 107, 138, 254, -497},
        {-37, -37, -8, 160, 616, 269, 132, 145, 256, -496},
        {-28, 88, 60, -267, 669, 382, 172, 157, 260, -494},
        {-25, -3, 54, -244, 531, 510, 229, 174, 265, -490},
        {22, -56, -43, -6, 154, 631, 308, 201, 273, -484},
        {16, -45, 87, 66, -284, 673, 427, 246, 288, -474},
        {-10, -14, -1, 43, -238, 510, 554, 307, 309, -460},
        {-3, 24, -58, -37, 4, 110, 665, 392, 340, -437},
        {8, 8, -38, 85, 63, -302, 681, 506, 389, -401},
        {7, -18, -11, 5, 20, -223, 463, 637, 462, -342},
        {3, -7, 25, -62, -24, 25, 18, 724, 556, -257},
        {-4, 11, 11, -46, 84, 84, -366, 676, 673, -123},
        {-1, 7, -21, -4, 15, -28, -182, 345, 784, 82},
        {3, 2, -13, 26, -65, 6, 67, -181, 802, 354},
        {-2, 5, 8, 10, -56, 79, 115, -470, 602, 709},
        {1, -4, 8, -22, 14, 38, -136, -50, 1, 1151},
        {2, 2, 4, -24, 19, -53, 82, 156, -646, 1458}
        // end generated
    };

    private static final String[] PRESETS = {
        // generated: preset-names
        "music",
        "bass",
        "steady",
        "night",
        "voice",
        "loud",
        "off"
        // end generated
    };

    // Identifier; band or -1.
    private static final int[][] PRESET_COMMANDS = {
        // generated: preset-commands
        {0x20003, -1},
        {0x20004, -1},
        {0x20005, -1},
        {0x20007, 0},
        {0x20007, 1},
        {0x20007, 2},
        {0x20007, 3},
        {0x20007, 4},
        {0x20007, 5},
        {0x20007, 6},
        {0x20007, 7},
        {0x20007, 8},
        {0x20007, 9},
        {0x20009, -1},
        {0x2000A, -1},
        {0x2000B, -1},
        {0x2000C, -1},
        {0x20002, -1},
        {0x20006, -1},
        {0x20008, -1}
        // end generated
    };

    private static final short[][] PRESET_VALUES = {
        // generated: preset-values
        {100, 100, 100, -10, 50, 50, 0, 0, -5, -15, 0, 5, 5, 120, 10, 88, 100, 0, 1, 1},
        {100, 100, 100, -20, 100, 80, 5, -5, -15, 0, -10, 5, -5, 100, 30, 70, 100, 0, 1, 1},
        {100, 100, 600, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 100, 0, 65, 100, 1, 0, 0},
        {300, 100, 1200, -70, -40, -10, 0, 0, 0, 0, 10, -10, -5, 100, 0, 25, 100, 1, 1, 0},
        {200, 100, 400, -60, -55, -45, -20, 0, 5, 20, 40, -15, 10, 100, 0, 55, 100, 1, 1, 0},
        {100, 100, 400, -10, 50, 50, 0, 0, -5, -15, 0, 5, 5, 120, 10, 125, 78, 1, 1, 1},
        {100, 100, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 100, 0, 100, 100, 0, 0, 0}
        // end generated
    };

    private OrvaneRecords() {}

    /**
     * Packs words one after the other, as the parameter or the value of {@code setParameter}.
     *
     * @param words 32-bit words
     * @return their bytes in the device's order
     */
    public static byte[] words(int... words) {
        ByteBuffer buffer = ByteBuffer.allocate(4 * words.length).order(ByteOrder.nativeOrder());
        for (int word : words) buffer.putInt(word);
        return buffer.array();
    }

    /**
     * Packs the data of a whole set-parameter command.
     *
     * @param id the parameter's identifier, one of PARAM_*
     * @param values 1 to {@link #MAX_VALUES}
     * @return the bytes of the command
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

    /**
     * Packs the data of a whole get-parameter command. Its reply takes 20 bytes.
     *
     * @param id the parameter's identifier, one of PARAM_*
     * @return the bytes of the command
     */
    public static byte[] get(int id) {
        return words(0, 4, 4, id);
    }

    /**
     * Returns the status of a reply to a get-parameter command: 0, or negative if refused.
     *
     * @param reply the bytes of the reply
     * @return 0, or a negative status
     */
    public static int status(byte[] reply) {
        if (reply.length < 4) return REFUSED;
        int status = word(reply, 0);
        if (status != 0) return status;
        return reply.length >= 20 && word(reply, 2) == 4 ? 0 : REFUSED;
    }

    /**
     * Returns the value of a reply whose {@link #status} is 0.
     *
     * @param reply the bytes of the reply
     * @return the value
     */
    public static int value(byte[] reply) {
        return word(reply, 4);
    }

    /**
     * Returns one of the 32-bit words in {@code bytes}; {@code index} counts words.
     *
     * @param bytes words in the device's byte order
     * @param index the number of the word, from 0
     * @return the word
     */
    public static int word(byte[] bytes, int index) {
        return ByteBuffer.wrap(bytes).order(ByteOrder.nativeOrder()).getInt(4 * index);
    }

    /**
     * Returns the value that sets a gain in dB when all ten bands get it with {@link
     * #PARAM_EQUALIZER_BANDLEVEL}. Below -40 dB it is -100 (mute); above 9 dB it is the highest,
     * 100 (9.5 dB). One band alone does less at its own frequency and the opposite an octave above
     * it. Band 9 alone removes everything below it. {@link #bandTerm} gives the numbers.
     *
     * @param decibels the gain of all bands in dB
     * @return the value to send for each band, -100 to 100
     */
    public static int levelOfDb(int decibels) {
        if (decibels < -40) return -100;
        return decibels > 9 ? 100 : LEVELS[decibels + 40];
    }

    /**
     * Returns what a band adds to the equalizer's linear gain at a frequency, in thousandths of the
     * band's own gain. The band's gain is 1 + level up to level 0 and 1 + 2 level above. So the
     * equalizer's gain at the frequency is the sum of term times gain over the ten bands, divided
     * by 1000. It can be negative. To find the ten gains for a curve, solve a linear least-squares
     * problem with bounds of 0 and 3.
     *
     * @param band 0 to 9, from the lowest band to the highest
     * @param third counts thirds of an octave from 0 (25 Hz) to 29 (20 kHz) at a sampling rate of
     *     44100 Hz; at other rates the frequencies are in proportion to the rate
     * @return the term, or 0 for any other band or third
     */
    public static int bandTerm(int band, int third) {
        if (band < 0 || band > 9 || third < 0 || third > 29) return 0;
        return TERMS[third][band];
    }

    /**
     * Returns the commands of a preset: for each one the identifier, then 1 or 2 values. All presets
     * have the same commands and set everything that a listener can set. So a preset leaves nothing
     * of another one. docs/presets.md says what each preset does.
     *
     * @param name the name of the preset, in lower case
     * @return a new array with one row for each command
     * @throws IllegalArgumentException if there is no such preset
     */
    public static int[][] preset(String name) {
        int row = java.util.Arrays.asList(PRESETS).indexOf(name);
        if (row < 0) throw new IllegalArgumentException("no preset " + name);
        int[][] commands = new int[PRESET_COMMANDS.length][];
        for (int i = 0; i < commands.length; ++i) {
            int id = PRESET_COMMANDS[i][0];
            int band = PRESET_COMMANDS[i][1];
            int value = PRESET_VALUES[row][i];
            commands[i] = band < 0 ? new int[] {id, value} : new int[] {id, band, value};
        }
        return commands;
    }
}
