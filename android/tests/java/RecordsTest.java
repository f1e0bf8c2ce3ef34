import android.media.audiofx.AudioEffect;

import com.quenthra.orvane.OrvaneEffect;
import com.quenthra.orvane.OrvaneRecords;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.Arrays;

/** Makes the right sides of print_records.c's lines again from the left, then tests the example. */
public final class RecordsTest {
    private static final int LINES = 94;

    public static void main(String[] args) throws Exception {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        int lines = 0;
        for (String line; (line = in.readLine()) != null; ++lines) {
            String[] sides = line.split(" = ", -1);
            check(line, sides[1], made(sides[0].split(" ")));
        }
        check("lines", LINES, lines);

        int[][] counts = {{3, -45}, {1, 2, 3, 4}};  // ints, bytes
        OrvaneEffect effect = new OrvaneEffect(5, OrvaneEffect.OUTPUT_MIX);
        check("uuid", OrvaneRecords.UUID_TEXT, AudioEffect.uuid.toString());
        for (int[] values : counts) {
            check("result", 0, effect.set(OrvaneRecords.PARAM_SET_MODE, values));
            byte[] record = OrvaneRecords.set(OrvaneRecords.PARAM_SET_MODE, values);
            byte[] sent = Arrays.copyOfRange(record, 12, record.length);
            check("sent", hex(sent), hex(AudioEffect.sent));
        }
        check("asked", -9, effect.get(OrvaneRecords.PARAM_GET_MODE));
        AudioEffect.result = -5;
        check("no control", -5, effect.set(OrvaneRecords.PARAM_SET_MODE, 1));
        try {
            effect.get(OrvaneRecords.PARAM_GET_MODE);
            throw new AssertionError("a refused get has a value");
        } catch (IllegalStateException expected) {
            check("message", "getParameter: -5", expected.getMessage());
        }
    }

    private static String made(String[] words) throws ReflectiveOperationException {
        switch (words[0]) {
            case "set":
                int[] values = new int[words.length - 2];
                for (int i = 0; i < values.length; ++i) values[i] = Integer.parseInt(words[i + 2]);
                return hex(OrvaneRecords.set(Integer.parseInt(words[1]), values));
            case "get":
                return hex(OrvaneRecords.get(Integer.parseInt(words[1])));
            case "reply":
                byte[] reply = new byte[words[1].length() / 2];
                for (int i = 0; i < reply.length; ++i)
                    reply[i] = (byte) Integer.parseInt(words[1].substring(2 * i, 2 * i + 2), 16);
                int status = OrvaneRecords.status(reply);
                return status + " " + (status == 0 ? OrvaneRecords.value(reply) : 0);
            case "level":
                return "" + OrvaneRecords.levelOfDb(Integer.parseInt(words[1]));
            case "term":
                return ""
                        + OrvaneRecords.bandTerm(
                                Integer.parseInt(words[1]), Integer.parseInt(words[2]));
            case "preset":
                StringBuilder command = new StringBuilder();
                for (int word : OrvaneRecords.preset(words[1])[Integer.parseInt(words[2])])
                    command.append(command.length() == 0 ? "" : " ").append(word);
                return command.toString();
            default:
                return "" + OrvaneRecords.class.getField(words[1]).get(null);
        }
    }

    private static String hex(byte[] bytes) {
        StringBuilder text = new StringBuilder();
        for (byte b : bytes) text.append(String.format("%02x", b));
        return text.toString();
    }

    private static void check(String what, Object expected, Object actual) {
        if (!expected.equals(actual))
            throw new AssertionError(what + ": expected " + expected + ", got " + actual);
    }
}
