package org.example;

import java.io.ByteArrayOutputStream;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.security.MessageDigest;
import java.util.Arrays;

/** A card, by the native methods of card.c. The class itself is what an app takes; main is for a try on Linux. */
public final class Card {
    static {
        System.loadLibrary("pcsclite"); // each before the one that needs it
        System.loadLibrary("quarvel");
        System.loadLibrary("card");
    }

    /** The beginning of a DigestInfo with a SHA-256 hash. */
    private static final byte[] SHA_256 = {
        0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, (byte) 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20
    };

    static native long initialise();

    static native long[] slotsWithCard();

    static native byte[] sign(long slot, byte[] pin, byte[] digestInfo);

    /** One PKCS#1 v1.5 signature; the PIN is wiped. */
    static byte[] signSha256(long slot, byte[] pin, byte[] message) throws Exception {
        ByteArrayOutputStream digestInfo = new ByteArrayOutputStream();
        digestInfo.write(SHA_256);
        digestInfo.write(MessageDigest.getInstance("SHA-256").digest(message));
        try {
            return sign(slot, pin, digestInfo.toByteArray());
        } finally {
            Arrays.fill(pin, (byte) 0);
        }
    }

    public static void main(String[] arguments) throws Exception {
        System.out.println("C_Initialize: " + initialise());
        long[] slots = slotsWithCard();
        System.out.println("Slots with a card: " + Arrays.toString(slots));
        byte[] pin = System.getenv("QUARVEL_PIN").getBytes("UTF-8");
        byte[] signature = signSha256(slots[0], pin, Files.readAllBytes(Paths.get(arguments[0])));
        Files.write(Paths.get(arguments[1]), signature);
        System.out.println("Signed: " + signature.length + " bytes");
    }
}
