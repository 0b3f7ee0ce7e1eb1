#!/usr/bin/env bash
# Java's SunPKCS11 signs forty times from four threads at once, with both paddings, and
# authenticates itself under TLS 1.3.
LIBRARY=pkcs11-brivasign-standard
source "$(dirname "$0")/support.sh"
setUp "$1" default-jdk-headless jar --version
printf 'name = Quorvent\nlibrary = %s\n' "$HOME/$MODULE" >quorvent.cfg

cat >Sign.java <<'JAVA'
import java.security.*;
import java.security.cert.Certificate;
import java.security.spec.*;
import java.util.*;
import java.util.concurrent.*;

public class Sign {
  public static void main(String[] arguments) throws Exception {
    Provider provider = Security.getProvider("SunPKCS11").configure("quorvent.cfg");
    Security.addProvider(provider);
    KeyStore store = KeyStore.getInstance("PKCS11", provider);
    store.load(null, null);
    List<String> aliases = Collections.list(store.aliases());
    ExecutorService threads = Executors.newFixedThreadPool(4);
    List<Future<Boolean>> results = new ArrayList<>();
    for (int i = 0; i < 40; ++i) {
      String alias = aliases.get(i % aliases.size());
      boolean isPss = i / 2 % 2 == 0;
      byte[] data = ("document " + i).getBytes();
      results.add(threads.submit(() -> {
        Certificate certificate = store.getCertificate(alias);
        Signature signer = Signature.getInstance(isPss ? "RSASSA-PSS" : "SHA256withRSA", provider);
        Signature verifier = Signature.getInstance(isPss ? "RSASSA-PSS" : "SHA256withRSA", "SunRsaSign");
        if (isPss) {
          PSSParameterSpec pss =
              new PSSParameterSpec("SHA-256", "MGF1", MGF1ParameterSpec.SHA256, 32, 1);
          signer.setParameter(pss);
          verifier.setParameter(pss);
        }
        signer.initSign((PrivateKey) store.getKey(alias, null));
        signer.update(data);
        byte[] signature = signer.sign();
        verifier.initVerify(certificate);
        verifier.update(data);
        return verifier.verify(signature);
      }));
    }
    int valid = 0;
    for (Future<Boolean> result : results) if (result.get()) ++valid;
    System.out.println(valid + " of " + results.size() + " signatures are valid");
    System.exit(0);
  }
}
JAVA
startService at-once
run java Sign.java || fail "the program does not end well"
stopService
expectText java "40 of 40 signatures are valid"
expectLines service 40 '^request .*: filed$' "the service should be asked for 40 signatures"
