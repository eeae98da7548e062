// SPDX-License-Identifier: Apache-2.0
// A client of the PC/SC daemon in Java: lists the readers, and sends commands to the cards in them.
//   java SendCommands.java [READER=COMMAND,COMMAND...]...

import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;
import javax.smartcardio.Card;
import javax.smartcardio.CardException;
import javax.smartcardio.CardTerminal;
import javax.smartcardio.CardTerminals;
import javax.smartcardio.CommandAPDU;
import javax.smartcardio.TerminalFactory;

public class SendCommands {
    private static final HexFormat HEX = HexFormat.of().withUpperCase();

    public static void main(String[] arguments) throws Exception {
        CardTerminals terminals = TerminalFactory.getInstance("PC/SC", null).terminals();
        for (CardTerminal terminal : terminals.list()) {
            System.out.println(terminal.getName() + ": " + (terminal.isCardPresent() ? "a card" : "empty"));
        }
        for (String argument : arguments) {
            String[] parts = argument.split("=");
            System.out.println(parts[0] + ": " + String.join(" ", answers(terminals.getTerminal(parts[0]), parts[1])));
        }
    }

    /** The protocol, the answer to reset, and the answer to each command with its status word. */
    private static List<String> answers(CardTerminal terminal, String commands) throws CardException {
        Card card = terminal.connect("*");
        try {
            List<String> said = new ArrayList<>(List.of(card.getProtocol(), HEX.formatHex(card.getATR().getBytes())));
            for (String command : commands.split(",")) {
                CommandAPDU apdu = new CommandAPDU(HEX.parseHex(command));
                said.add(HEX.formatHex(card.getBasicChannel().transmit(apdu).getBytes()));
            }
            return said;
        } finally {
            card.disconnect(false);
        }
    }
}
