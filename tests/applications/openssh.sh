#!/usr/bin/env bash
# OpenSSH reads a public key, and its agent signs a file.
source "$(dirname "$0")/support.sh"
setUp "$1" openssh-client command -v ssh-agent
# It sees one certificate alone, which may be any of them.
rm "$PRODUCT_FOLDER/certificados/1002.cer"

module=$(realpath "$MODULE")
run ssh-keygen -D "$module" || fail "ssh-keygen reads no key"
ssh-keygen -i -m PKCS8 -f maria.pub >expected.pub
run grep -c -F -f expected.pub ssh-keygen.lines || fail "the key is not Maria's"

# An empty PIN will do: the real one is asked for on the phone.
export SSH_AUTH_SOCK=$HOME/agent SSH_ASKPASS=true SSH_ASKPASS_REQUIRE=force
ssh-agent -a "$SSH_AUTH_SOCK" -P "$module" >agent.sh || fail "the agent does not start"
helperPids=$(sed -n 's/^SSH_AGENT_PID=\([0-9]*\);.*/\1/p' agent.sh)
run ssh-add -s "$module" || fail "the agent does not take the module"
runSigning at-once ssh-keygen -Y sign -f expected.pub -n file contract.txt ||
  fail "nothing is signed"
echo "maria $(cat expected.pub)" >signers
run ssh-keygen -Y verify -f signers -I maria -n file -s contract.txt.sig <contract.txt ||
  fail "the signature is not valid"

git=(git -C repository -c user.name=Maria -c user.email=maria -c gpg.format=ssh
  -c user.signingKey="$HOME/expected.pub" -c gpg.ssh.allowedSignersFile="$HOME/signers")
git init -q repository
runSigning at-once "${git[@]}" commit -S --allow-empty -m signed || fail "git does not sign"
run "${git[@]}" verify-commit HEAD || fail "git does not verify"
