package android.media.audiofx;

import com.quenthra.orvane.OrvaneRecords;

import java.util.UUID;

/** Stands in for the framework's class and keeps what it is given. */
public class AudioEffect {
    public static UUID uuid;
    public static byte[] sent; // identifier and values, as they'd follow the record's header
    public static int result;

    public AudioEffect(UUID type, UUID uuid, int priority, int session) {
        AudioEffect.uuid = uuid;
    }

    public int setParameter(int[] param, int[] value) {
        if (param.length > 2 || value.length > 2) return -4;
        return setParameter(OrvaneRecords.words(param), OrvaneRecords.words(value));
    }

    public int setParameter(byte[] param, byte[] value) {
        sent = new byte[param.length + value.length];
        System.arraycopy(param, 0, sent, 0, param.length);
        System.arraycopy(value, 0, sent, param.length, value.length);
        return result;
    }

    public int getParameter(byte[] param, byte[] value) {
        System.arraycopy(OrvaneRecords.words(-9), 0, value, 0, 4);
        return result;
    }
}
