// SPDX-License-Identifier: Apache-2.0
// Reads a card through JNA (Debian: libjna-java):
//     java -cp /usr/share/java/jna.jar examples/java/ReadCard.java LIBRARY PORT
import com.sun.jna.Library;
import com.sun.jna.Native;
import com.sun.jna.ptr.IntByReference;

import java.nio.charset.StandardCharsets;
import java.util.Map;

public class ReadCard {
    /** The calls as the header ICC_COMM_VORN.h declares them. */
    public interface Vorn extends Library {
        int ATR_CAPACITY = 989;
        int USER_INFO_CAPACITY = 6169;

        int IC_PowerOn(String port, String extend, int speed, int seconds, int cardType, int psam, byte[] atr);

        int IC_PowerOff(String port, String extend, int speed, int seconds, int cardType, int psam);

        int IC_GetInfo(String port, String extend, int speed, int seconds, IntByReference cardType, String aids,
                String letters, IntByReference length, byte[] record);
    }

    /** A call that did not return 0. */
    public static class CardException extends Exception {
        private static final Map<Integer, String> WORDS = Map.of(-2, "no card in time", -3, "the port cannot be opened",
                -9, "no card", -11, "the reader does not answer", -25, "the card does not answer", -26,
                "no application on the card");
        public final int result;

        CardException(String call, int result) {
            super(call + ": " + WORDS.getOrDefault(result, "it failed") + " (" + result + ")");
            this.result = result;
        }
    }

    private static void check(String call, int result) throws CardException {
        if (result != 0) {
            throw new CardException(call, result);
        }
    }

    static String record(Vorn library, String port) throws CardException {
        byte[] atr = new byte[Vorn.ATR_CAPACITY];
        byte[] record = new byte[Vorn.USER_INFO_CAPACITY];
        IntByReference cardType = new IntByReference(3); // contact first, then contactless
        IntByReference length = new IntByReference();
        // This one waits for a card with a bound; IC_GetInfo would wait for ever.
        check("IC_PowerOn", library.IC_PowerOn(port, "", 9600, 20, 1, 0, atr));
        check("IC_GetInfo",
                library.IC_GetInfo(port, "", 9600, 20, cardType, "", "ABCDEFGHIJKL", length, record));
        return new String(record, 0, length.getValue() - 1, StandardCharsets.US_ASCII); // the NUL is counted
    }

    public static void main(String[] arguments) {
        if (arguments.length != 2) {
            System.err.println("usage: ReadCard LIBRARY PORT");
            System.exit(2);
        }
        // One call at a time in a process, whichever thread makes it.
        Vorn library = (Vorn) Native.synchronizedLibrary(Native.load(arguments[0], Vorn.class));
        try {
            String record = record(library, arguments[1]);
            int digits = Integer.parseInt(record.substring(1, 4)); // field A, the account number, comes first
            System.out.println("card ..." + (digits > 4 ? record.substring(digits, digits + 4) : "(none)"));
        } catch (CardException error) {
            System.err.println(error.getMessage());
            System.exit(1);
        }
    }
}
