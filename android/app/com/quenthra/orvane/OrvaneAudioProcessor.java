package com.quenthra.orvane;

import androidx.media3.common.audio.AudioProcessor;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;

/**
 * The Quenthra Orvane effect as an audio processor of Media3, written for version 1.5. In later
 * versions, the flush() that tells more calls this one. It processes stereo sound of 16-bit samples
 * at 32000 to 48000 Hz. For other formats it is inactive, and the sound passes unchanged.
 *
 * <p>As many frames come out as went in, and each at its own place. Methods of AudioProcessor are
 * called by one thread at a time. setPreset(), set() and setBypass() may be called by any thread at any
 * time; what they set also holds for later formats, and after reset().
 */
public final class OrvaneAudioProcessor implements AudioProcessor {
    private static final int PCM_16_BIT = 2; // C.ENCODING_PCM_16BIT
    private static final int BUFFER_FRAMES = 4096;
    private static final int MOST_PARAMETERS = 64;

    private final boolean settles;
    private final ByteBuffer buffer =
            ByteBuffer.allocateDirect(BUFFER_FRAMES * OrvaneStream.FRAME_BYTES)
                    .order(ByteOrder.nativeOrder());
    private ByteBuffer output = EMPTY_BUFFER;
    private boolean inputEnded;
    // The format that the next flush makes the present one, and the present one's rate.
    private AudioFormat pending = AudioFormat.NOT_SET;
    private int rateHz;

    // What was set, and the streams that it is set in. Guarded by `this`.
    private String preset;
    private final double[] values = new double[MOST_PARAMETERS]; // NaN: as the preset says
    private boolean bypassed;
    private OrvaneStream stream;  // null while inactive
    private OrvaneStream next;    // the stream of another pending rate, or null

    /**
     * @param preset the name of a preset, or null to begin with every processor off
     * @throws IllegalArgumentException if there is no such preset
     */
    public OrvaneAudioProcessor(String preset) {
        this(preset, true);
    }

    OrvaneAudioProcessor(String preset, boolean settles) {
        this.settles = settles;
        setPreset(preset);
    }

    /**
     * Sets everything to what a preset says. For null, every processor is switched off.
     *
     * @param name the name of a preset, or null
     * @throws IllegalArgumentException if there is no such preset
     */
    public synchronized void setPreset(String name) {
        final int number = name != null ? OrvaneStream.findPreset(name) : OrvaneStream.NO_PRESET;
        if (name != null && number < 0) throw new IllegalArgumentException("preset: " + name);
        preset = name;
        Arrays.fill(values, Double.NaN);
        if (stream != null) stream.applyPreset(number);
        if (next != null) next.applyPreset(number);
    }

    /**
     * Sets a parameter; see OrvaneStream.find(). Call it after setPreset(), which sets all.
     *
     * @param parameter a number that OrvaneStream.find() returned
     * @param value in the units of settings files
     * @throws IllegalArgumentException if there is no such parameter, or the value is not a number
     */
    public synchronized void set(int parameter, double value) {
        if (parameter < 0 || parameter >= MOST_PARAMETERS || value != value)
            throw new IllegalArgumentException("parameter " + parameter + ": " + value);
        values[parameter] = value;
        if (stream != null) stream.set(parameter, value);
        if (next != null) next.set(parameter, value);
    }

    /**
     * Lets the sound pass with the same delay, or ends that. Fades.
     *
     * @param bypassed true to let the sound pass
     */
    public synchronized void setBypass(boolean bypassed) {
        this.bypassed = bypassed;
        if (stream != null) stream.setBypass(bypassed);
        if (next != null) next.setBypass(bypassed);
    }

    @Override
    public AudioFormat configure(AudioFormat format) {
        final boolean taken =
                format.encoding == PCM_16_BIT
                        && format.channelCount == 2
                        && format.sampleRate >= OrvaneStream.LOWEST_RATE_HZ
                        && format.sampleRate <= OrvaneStream.HIGHEST_RATE_HZ;
        pending = taken ? format : AudioFormat.NOT_SET;
        replaceNext(taken && (stream == null || format.sampleRate != rateHz) ? make() : null);
        return pending;
    }

    @Override
    public boolean isActive() {
        return !pending.equals(AudioFormat.NOT_SET);
    }

    @Override
    public void queueInput(ByteBuffer input) {
        if (stream == null) throw new IllegalStateException("configure() and flush() come first");
        buffer.clear();
        stream.process(input, buffer);
        buffer.flip();
        output = buffer;
    }

    @Override
    public void queueEndOfStream() {
        inputEnded = true;
    }

    @Override
    public ByteBuffer getOutput() {
        if (inputEnded && stream != null && !output.hasRemaining()) {
            buffer.clear();
            stream.drain(buffer);
            buffer.flip();
            output = buffer;
        }
        final ByteBuffer result = output;
        output = EMPTY_BUFFER;
        return result;
    }

    @Override
    public boolean isEnded() {
        return inputEnded
                && !output.hasRemaining()
                && (stream == null || stream.waitingFrames() == 0);
    }

    @Override
    public void flush() {
        output = EMPTY_BUFFER;
        inputEnded = false;
        if (next != null || !isActive()) takeNext();
        else stream.flush();
    }

    @Override
    public void reset() {
        pending = AudioFormat.NOT_SET;
        replaceNext(null);
        flush();
    }

    // Makes a stream of the pending rate with all that was set.
    private synchronized OrvaneStream make() {
        final OrvaneStream made = new OrvaneStream(pending.sampleRate, preset, settles);
        for (int n = 0; n < MOST_PARAMETERS; ++n) if (values[n] == values[n]) made.set(n, values[n]);
        made.setBypass(bypassed);
        return made;
    }

    private synchronized void replaceNext(OrvaneStream made) {
        if (next != null) next.close();
        next = made;
    }

    private synchronized void takeNext() {
        if (stream != null) stream.close();
        stream = next;
        next = null;
        rateHz = pending.sampleRate;
    }
}
