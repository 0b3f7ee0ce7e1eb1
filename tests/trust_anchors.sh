#!/usr/bin/env bash
# The certificates compiled into the module ($1: the source the build made of its deployment),
# against the table of the twelve: the issuer's number, then what each says of itself.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
sed 's/^ *R"pem(//' "$1" |
  awk -v folder="$scratch" '/BEGIN CERT/ { n++ } n { print > (folder "/" n ".pem") }'

AC="Autoridade Certificadora"
LE="Mar 13 00:00:00 2024 GMT,Mar 12 23:59:59 2027 GMT"
count=0
while IFS=, read -r issuer subject serial from until bits algorithm; do
  count=$((count + 1))
  expected="serial=$serial;notBefore=$from;notAfter=$until;CN=$subject;$algorithm;$bits bit;"
  found=$(openssl x509 -in "$scratch/$count.pem" -noout -serial -dates -subject -text \
    -nameopt sep_multiline -certopt no_header,no_version,no_issuer,no_extensions,no_sigdump |
    sed -nE 's/^ *(serial=|not[BA].*=|CN=)/\1/p; s/^ *Public-Key: .([0-9]+ bit).*/\1/p;
      s/^ *Signature Algorithm: //p' | awk '!seen[$0]++' | tr '\n' ';')
  [[ $found == "$expected" ]] || { echo "$count: $found"$'\n'"should be: $expected" && exit 1; }
  # A damaged byte anywhere breaks the signature.
  openssl verify -partial_chain -no_check_time -trusted "$scratch/$issuer.pem" "$scratch/$count.pem"
done <<TABLE
1,$AC Raiz Brasileira v2,01,Jun 21 19:04:57 2010 GMT,Jun 21 19:04:57 2023 GMT,4096,sha512WithRSAEncryption
1,AC Secretaria da Receita Federal do Brasil v3,08,Oct 21 12:16:29 2011 GMT,Oct 21 12:16:29 2021 GMT,4096,sha512WithRSAEncryption
3,$AC Raiz de Homologacao KELMAR,01,May  5 19:33:15 2011 GMT,May  5 19:33:15 2021 GMT,4096,sha512WithRSAEncryption
3,$AC Intermediaria HOMv2,03,Jun 17 19:50:59 2011 GMT,Jun 17 19:50:59 2019 GMT,4096,sha512WithRSAEncryption
4,$AC ACKELMARACFv3 Homologacao,13,Jul 14 19:00:25 2011 GMT,Mar 14 19:00:25 2019 GMT,4096,sha512WithRSAEncryption
6,ISRG Root X1,8210CFB0D240E3594463E0BB63828B00,Jun  4 11:04:38 2015 GMT,Jun  4 11:04:38 2035 GMT,4096,sha256WithRSAEncryption
6,R3,912B084ACF0C18A753F6D62E25A75F5A,Sep  4 00:00:00 2020 GMT,Sep 15 16:00:00 2025 GMT,2048,sha256WithRSAEncryption
6,R10,4BA85293F79A2FA273064BA8048D75D0,$LE,2048,sha256WithRSAEncryption
6,R11,8A7D3E13D62F30EF2386BD29076B34F8,$LE,2048,sha256WithRSAEncryption
6,R12,C212324B70A9B49171DC40F7E285263C,$LE,2048,sha256WithRSAEncryption
6,R13,5A00F212D8D4B480F3924157EA298305,$LE,2048,sha256WithRSAEncryption
6,R14,BEF37378A8702A9EC0A47AB921A506AB,$LE,2048,sha256WithRSAEncryption
TABLE
[[ $count -eq 12 && ! -e $scratch/13.pem ]]
