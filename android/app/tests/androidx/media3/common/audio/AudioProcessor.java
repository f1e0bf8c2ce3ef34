package androidx.media3.common.audio;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/** Stands in for the interface of Media3, with what the effect uses of it. */
public interface AudioProcessor {
    final class AudioFormat {
        public static final AudioFormat NOT_SET = new AudioFormat(-1, -1, -1);
        public final int sampleRate, channelCount, encoding;

        public AudioFormat(int sampleRate, int channelCount, int encoding) {
            this.sampleRate = sampleRate;
            this.channelCount = channelCount;
            this.encoding = encoding;
        }

        @Override
        public boolean equals(Object other) {
            return other instanceof AudioFormat
                    && ((AudioFormat) other).sampleRate == sampleRate
                    && ((AudioFormat) other).channelCount == channelCount
                    && ((AudioFormat) other).encoding == encoding;
        }

        @Override
        public int hashCode() {
            return sampleRate + channelCount + encoding;
        }
    }

    final class UnhandledAudioFormatException extends Exception {
        private static final long serialVersionUID = 1;
    }

    ByteBuffer EMPTY_BUFFER = ByteBuffer.allocateDirect(0).order(ByteOrder.nativeOrder());

    AudioFormat configure(AudioFormat format) throws UnhandledAudioFormatException;
    boolean isActive();
    void queueInput(ByteBuffer input);
    void queueEndOfStream();
    ByteBuffer getOutput();
    boolean isEnded();
    void flush();
    void reset();
}
