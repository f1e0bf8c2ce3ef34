package com.quenthra.orvane;

import android.media.audiofx.AudioEffect;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.util.UUID;

/**
 * Example: controls Quenthra Orvane v2 on the output mix, through the framework's hidden methods.
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
 * The application needs the permission MODIFY_AUDIO_SETTINGS. Keep a reference to the object. Once
 * it is released or garbage-collected, the effect and its settings are gone.
 */
public final class OrvaneEffect {
    /** The audio session of the output mix; see docs/controlling.md. */
    public static final int OUTPUT_MIX = 0;

    // The framework's "any type", because the effect has another type in safe mode.
    private static final UUID ANY_TYPE = UUID.fromString("ec7178ec-e5e1-4432-a3f4-4657e6795210");

    private final AudioEffect effect;
    private final Method setInts;
    private final Method setBytes;
    private final Method get;

    /**
     * @param priority of this client over others that control the effect; usually 0
     * @param session the audio session that the effect works on
     * @throws UnsupportedOperationException if the device lacks the effect or these hidden methods
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

    /**
     * Returns the framework's object, to enable or release it or to learn who has control.
     *
     * @return the framework's object, always the same
     */
    public AudioEffect effect() {
        return effect;
    }

    /**
     * Sets a parameter to 1 to 4 values. Returns 0 or more on success; later releases return a
     * count. Returns a negative error of AudioEffect on failure, -5 while another client has
     * control. An unknown identifier, or a value that the effect ignores, counts as success.
     *
     * @param id the parameter's identifier, one of OrvaneRecords.PARAM_*
     * @param values 1 to 4 values, as they are sent
     * @return 0 or more on success, a negative error on failure
     */
    public int set(int id, int... values) {
        // The overload for ints takes at most two values.
        if (values.length <= 2) return call(setInts, new int[] {id}, values);
        return call(setBytes, OrvaneRecords.words(id), OrvaneRecords.words(values));
    }

    /**
     * Asks for a value.
     *
     * @param id the parameter's identifier, one of OrvaneRecords.PARAM_GET_*
     * @return the value
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
