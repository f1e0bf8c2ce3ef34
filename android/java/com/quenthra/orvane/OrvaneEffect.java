package com.quenthra.orvane;

import android.media.audiofx.AudioEffect;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.util.UUID;

/**
 * Example: Quenthra Orvane v2 on the output mix, through the framework's hidden calls.
 *
 * <pre>
 *     OrvaneEffect orvane = new OrvaneEffect(0, OrvaneEffect.OUTPUT_MIX);
 *     orvane.set(OrvaneRecords.PARAM_EQUALIZER_BANDLEVEL, 3, OrvaneRecords.levelOfDb(-6));
 *     orvane.set(OrvaneRecords.PARAM_EQUALIZER_ENABLE, 1);
 *     orvane.effect().setEnabled(true);
 *     ...
 *     orvane.effect().release();
 * </pre>
 *
 * The application needs the permission MODIFY_AUDIO_SETTINGS. Keep the object: once it is released
 * or collected, the effect is gone, and so are its settings.
 */
public final class OrvaneEffect {
    /** The session to run on; see docs/controlling.md. */
    public static final int OUTPUT_MIX = 0;

    // The framework's "any type": in safe mode the effect has another one.
    private static final UUID ANY_TYPE = UUID.fromString("ec7178ec-e5e1-4432-a3f4-4657e6795210");

    private final AudioEffect effect;
    private final Method setInts;
    private final Method setBytes;
    private final Method get;

    /**
     * @param priority of this client over others that control the effect; the usual one is 0
     * @throws UnsupportedOperationException if the device doesn't have the effect, or not these
     *     calls
     */
    public OrvaneEffect(int priority, int session) {
        try {
            Class<AudioEffect> type = AudioEffect.class;
            setInts = type.getMethod("setParameter", int[].class, int[].class);
            setBytes = type.getMethod("setParameter", byte[].class, byte[].class);
            get = type.getMethod("getParameter", byte[].class, byte[].class);
            effect =
                    type.getConstructor(UUID.class, UUID.class, int.class, int.class)
                            .newInstance(
                                    ANY_TYPE,
                                    UUID.fromString(OrvaneRecords.UUID_TEXT),
                                    priority,
                                    session);
        } catch (InvocationTargetException e) {
            throw unsupported(e.getCause());
        } catch (ReflectiveOperationException e) {
            throw unsupported(e);
        }
    }

    /** To enable, disable and release it, and to hear who has control. */
    public AudioEffect effect() {
        return effect;
    }

    /**
     * Sets a parameter to 1 to 4 values. Negative: an error of AudioEffect, -5 while another client
     * has control. 0 or above: done (later releases answer a count). An unknown identifier or a
     * value that the effect ignores is "done" as well.
     */
    public int set(int id, int... values) {
        // The overload for ints takes two of them at most.
        if (values.length <= 2) return call(setInts, new int[] {id}, values);
        return call(setBytes, OrvaneRecords.words(id), OrvaneRecords.words(values));
    }

    /**
     * Asks for a value.
     *
     * @throws IllegalStateException with the error, if the effect refuses
     */
    public int get(int id) {
        byte[] value = new byte[4];
        int result = call(get, OrvaneRecords.words(id), value);
        if (result < 0) throw new IllegalStateException("getParameter: " + result);
        return OrvaneRecords.word(value, 0);
    }

    private int call(Method method, Object parameter, Object value) {
        try {
            return (Integer) method.invoke(effect, parameter, value);
        } catch (InvocationTargetException e) {
            throw new IllegalStateException(e.getCause());
        } catch (IllegalAccessException e) {
            throw new IllegalStateException(e);
        }
    }

    private static UnsupportedOperationException unsupported(Throwable cause) {
        return new UnsupportedOperationException("no Quenthra Orvane here", cause);
    }
}
