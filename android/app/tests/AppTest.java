package com.quenthra.orvane;

import androidx.media3.common.audio.AudioProcessor;
import androidx.media3.common.audio.AudioProcessor.AudioFormat;
import java.io.ByteArrayOutputStream;
import java.io.File;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.util.Arrays;
import java.util.Random;

/** Plays through the processor as a player does. The reference is the C library's program `filter`. */
final class AppTest {
    private static final int COLD_START = 2, STEREO = 2, PCM_16 = 2, PCM_FLOAT = 4;
    private static final Random RANDOM = new Random(26);
    private static final byte[] COPY = new byte[1 << 20];
    private static String filter;

    public static void main(String[] arguments) throws Exception {
        filter = arguments[0];
        for (int rate : new int[] {44100, 48000}) testPresets(rate);
        testFormats();
        testFlushAndFormatChange();
        testThreads();
        testAllocationAndClose();
    }

    /** Noise and tones, loud and soft, to the last frame. */
    private static byte[] sound(int frames, int seed) {
        final Random noise = new Random(seed);
        final ByteBuffer pcm = ByteBuffer.allocate(4 * frames).order(ByteOrder.nativeOrder());
        for (int n = 0; n < frames; ++n)
            for (int c = 0; c < 2; ++c)
                pcm.putShort((short) ((n / 20000 % 2 == 0 ? 20000 : 1500)
                        * (Math.sin(n * 0.01 * (c + 1)) * 0.6 + noise.nextDouble() * 0.4)));
        return pcm.array();
    }

    private static byte[] reference(byte[] sound, int rate, String preset) throws Exception {
        final File in = File.createTempFile("orvane", ".pcm");
        Files.write(in.toPath(), sound);
        final Process process = new ProcessBuilder(filter, "" + rate, preset, "" + COLD_START)
                .redirectInput(in).start();
        final byte[] result = process.getInputStream().readAllBytes();
        check(process.waitFor() == 0, "filter fails");
        Files.delete(in.toPath());
        return result;
    }

    /** Gives bytes in pieces of random sizes, and checks what the contract says of each call. */
    private static void give(OrvaneAudioProcessor to, byte[] sound, ByteArrayOutputStream out) {
        for (int at = 0; at < sound.length; ) {
            final int bytes = Math.min(sound.length - at, 4 * RANDOM.nextInt(6000));
            final ByteBuffer input =
                    ByteBuffer.allocateDirect(bytes + 8).order(ByteOrder.nativeOrder());
            input.position(4);
            input.put(sound, at, bytes);
            input.position(4).limit(4 + bytes);
            for (int calls = 0; input.hasRemaining(); ++calls) {
                check(calls < 100, "the input's position isn't moved");
                to.queueInput(input);
                check(input.limit() == 4 + bytes, "the input's limit moved");
                take(to, out);
                check(!to.getOutput().hasRemaining(), "the same output came twice");
            }
            at += bytes;
        }
        check(!to.isEnded(), "ended before the end of the stream");
    }

    private static void take(OrvaneAudioProcessor from, ByteArrayOutputStream out) {
        final ByteBuffer output = from.getOutput();
        check(output.isDirect() && output.order() == ByteOrder.nativeOrder(), "no direct buffer");
        final int bytes = output.remaining();
        output.get(COPY, 0, bytes);
        out.write(COPY, 0, bytes);
    }

    private static byte[] end(OrvaneAudioProcessor processor, ByteArrayOutputStream out) {
        processor.queueEndOfStream();
        for (int calls = 0; !processor.isEnded(); ++calls) {
            check(calls < 100, "never ends");
            take(processor, out);
        }
        check(!processor.getOutput().hasRemaining(), "output after the end");
        return out.toByteArray();
    }

    private static byte[] play(OrvaneAudioProcessor processor, byte[] sound) {
        final ByteArrayOutputStream out = new ByteArrayOutputStream();
        give(processor, sound, out);
        return end(processor, out);
    }

    private static void configure(OrvaneAudioProcessor processor, int rate) {
        final AudioFormat format = new AudioFormat(rate, STEREO, PCM_16);
        check(processor.configure(format).equals(format) && processor.isActive(), "inactive");
    }

    private static void testPresets(int rate) throws Exception {
        for (int number = 0; OrvaneStream.presetName(number) != null; ++number) {
            final String preset = OrvaneStream.presetName(number);
            // The last piece is shorter than the delay.
            for (int frames : new int[] {60001, 700}) {
                final byte[] sound = sound(frames, number);
                final OrvaneAudioProcessor processor = new OrvaneAudioProcessor(preset, false);
                configure(processor, rate);
                processor.flush();
                final byte[] wanted = reference(sound, rate, preset);
                check(Arrays.equals(play(processor, sound), wanted), preset + " at " + rate);
                processor.reset();
                check(!processor.isActive(), "active after reset");
            }
        }
    }

    private static void testFormats() {
        final OrvaneAudioProcessor processor = new OrvaneAudioProcessor("night");
        final int[][] refused = {{48000, 1, PCM_16}, {48000, 6, PCM_16}, {48000, 2, PCM_FLOAT},
            {96000, 2, PCM_16}, {22050, 2, PCM_16}};
        for (int[] f : refused) {
            final AudioFormat result = processor.configure(new AudioFormat(f[0], f[1], f[2]));
            check(!processor.isActive() && result.equals(AudioFormat.NOT_SET), "takes " + f[0]);
            processor.flush();
        }
        try {
            new OrvaneAudioProcessor("nothing");
            check(false, "takes an unknown preset");
        } catch (IllegalArgumentException wanted) {
        }
    }

    private static void testFlushAndFormatChange() throws Exception {
        final byte[] sound = sound(30000, 1), other = sound(20000, 2);
        final OrvaneAudioProcessor processor = new OrvaneAudioProcessor(null, false);
        processor.setBypass(true);
        configure(processor, 44100);
        processor.flush();
        give(processor, sound, new ByteArrayOutputStream());
        processor.queueInput(direct(Arrays.copyOf(other, 8000)));
        processor.flush(); // the output that waits is dropped too
        check(!processor.getOutput().hasRemaining(), "flush keeps output");
        checkSame(other, play(processor, other), "after a flush");

        // A format takes effect with the next flush; until then the older one plays to its end.
        processor.flush();
        final ByteArrayOutputStream out = new ByteArrayOutputStream();
        give(processor, sound, out);
        configure(processor, 48000);
        checkSame(sound, end(processor, out), "before the format changes");
        processor.flush();
        checkSame(other, play(processor, other), "after the format has changed");
        processor.reset();
        configure(processor, 32000);
        processor.flush();
        checkSame(sound, play(processor, sound), "after a reset");
    }

    private static ByteBuffer direct(byte[] bytes) {
        final ByteBuffer buffer =
                ByteBuffer.allocateDirect(bytes.length).order(ByteOrder.nativeOrder());
        buffer.put(bytes).flip();
        return buffer;
    }

    private static void checkSame(byte[] sound, byte[] result, String when) {
        check(Arrays.equals(sound, result), when + ": " + result.length + " bytes");
    }

    /** The delay of the stream changes while it plays; frames stay at their places. */
    private static void testThreads() throws Exception {
        final OrvaneAudioProcessor processor = new OrvaneAudioProcessor(null);
        configure(processor, 48000);
        processor.flush();
        final boolean[] stop = {false};
        final Thread thread = new Thread(() -> {
            for (int n = 0; !stop[0]; ++n) {
                processor.setPreset(OrvaneStream.presetName(n % 4));
                processor.setBypass(n % 7 == 0);
            }
        });
        thread.start();
        final byte[] sound = sound(200000, 3);
        check(play(processor, sound).length == sound.length, "frames are lost");
        stop[0] = true;
        thread.join();

        processor.setPreset("music");
        processor.setBypass(true);
        processor.flush();
        final ByteArrayOutputStream out = new ByteArrayOutputStream();
        give(processor, Arrays.copyOf(sound, 400000), out);
        processor.setPreset(null);
        give(processor, Arrays.copyOfRange(sound, 400000, sound.length), out);
        final byte[] result = end(processor, out);
        check(result.length == sound.length, "frames are lost when the delay changes");
        final int later = 400000 + 4 * 24000;
        check(Arrays.equals(result, later, result.length, sound, later, sound.length)
                && Arrays.equals(result, 0, 390000, sound, 0, 390000), "frames move");
        processor.reset();
    }

    private static void testAllocationAndClose() {
        final OrvaneAudioProcessor processor = new OrvaneAudioProcessor("music");
        configure(processor, 48000);
        processor.flush();
        final ByteBuffer in = direct(sound(1024, 4));
        final com.sun.management.ThreadMXBean counter =
                (com.sun.management.ThreadMXBean) ManagementFactory.getThreadMXBean();
        final long thread = Thread.currentThread().getId();
        long before = 0;
        for (int n = 0; n < 2000; ++n) {
            if (n == 1000) before = counter.getThreadAllocatedBytes(thread);
            in.clear();
            processor.queueInput(in);
            processor.getOutput();
        }
        final long bytes = counter.getThreadAllocatedBytes(thread) - before;
        check(bytes < 1000, "allocates " + bytes + " bytes in 1000 calls");

        final OrvaneStream stream = new OrvaneStream(48000, "music");
        stream.close();
        stream.set(0, 1);
        try {
            stream.process(in, in);
            check(false, "plays after close");
        } catch (IllegalStateException wanted) {
        }
    }

    private static void check(boolean condition, String fault) {
        if (!condition) throw new AssertionError(fault);
    }
}
