#!/usr/bin/env bash
# Java's SunPKCS11 signs forty times from four threads at once, with both paddings, and
# authenticates itself under TLS 1.3.
source "$(dirname "$0")/support.sh"
setUp "$1" default-jdk-headless jar --version
printf 'name = Quorvent\nlibrary = %s\n' "$HOME/$MODULE" >quorvent.cfg

cat >Sign.java <<'JAVA'
import java.net.Socket;
import java.security.*;
import java.security.spec.*;
import java.util.*;
import java.util.concurrent.*;
import javax.net.ssl.*;

public class Sign {
  public static void main(String[] arguments) throws Exception {
    Provider provider = Security.getProvider("SunPKCS11").configure("quorvent.cfg");
    Security.addProvider(provider);
    KeyStore store = KeyStore.getInstance("PKCS11", provider);
    store.load(null, null);
    List<String> aliases = Collections.list(store.aliases());
    PSSParameterSpec pss = new PSSParameterSpec("SHA-256", "MGF1", MGF1ParameterSpec.SHA256, 32, 1);
    List<Callable<Boolean>> tasks = new ArrayList<>();
    for (int i = 0; i < 40; ++i) {
      String alias = aliases.get(i % aliases.size());
      String name = i / 2 % 2 == 0 ? "RSASSA-PSS" : "SHA256withRSA";
      byte[] data = ("document " + i).getBytes();
      tasks.add(() -> {
        Signature signer = Signature.getInstance(name, provider);
        Signature verifier = Signature.getInstance(name, "SunRsaSign");
        if (name.equals("RSASSA-PSS")) signer.setParameter(pss);
        if (name.equals("RSASSA-PSS")) verifier.setParameter(pss);
        signer.initSign((PrivateKey) store.getKey(alias, null));
        signer.update(data);
        verifier.initVerify(store.getCertificate(alias));
        verifier.update(data);
        return verifier.verify(signer.sign());
      });
    }
    ExecutorService threads = Executors.newFixedThreadPool(4);
    int valid = 0;
    for (Future<Boolean> result : threads.invokeAll(tasks)) if (result.get()) ++valid;
    threads.shutdown();
    System.out.println(valid + " of " + tasks.size() + " signatures are valid");

    KeyManagerFactory keys = KeyManagerFactory.getInstance("SunX509");
    keys.init(store, null);
    SSLContext context = SSLContext.getInstance("TLSv1.3");
    context.init(keys.getKeyManagers(), null, null);
    Socket socket =
        context.getSocketFactory().createSocket("127.0.0.1", Integer.parseInt(arguments[0]));
    socket.getOutputStream().write("GET / HTTP/1.0\r\n\r\n".getBytes());
    socket.getInputStream().transferTo(System.out);
  }
}
JAVA
startService at-once
startTlsServer -tls1_3 -www
run keytool -importcert -noprompt -file local-pki/ca.pem -keystore trusted -storepass 123456 ||
  fail "the CA cannot be trusted"
run java -Djavax.net.ssl.trustStore="$HOME/trusted" \
  -Djavax.net.ssl.trustStorePassword=123456 Sign.java "$TLS_PORT" || fail "the program does not end well"
stopService
expectText java "40 of 40 signatures are valid"
expectText java "Subject: C=BR, O=Quorvent Local, CN="
expectLines service 41 ' request [0-9]*: filed,' "the service should be asked for 41 signatures"
