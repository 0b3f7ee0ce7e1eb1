# Turns a deployment folder (environments.txt and trust-anchors/*.pem) into a source file.
#
# Included, it offers write_deployment(). As a script it calls it, for a folder that is itself made
# by the build: cmake -DDEPLOYMENT_DIR=... -DDEPLOYMENT_SOURCE=... -P deployment.cmake
#
# Each function here leaves what is wrong with the folder as a sentence in DEPLOYMENT_FAULT in its
# caller's scope: stopped here, CMake would bury the sentence under a call stack.

cmake_minimum_required(VERSION 3.25)

set(DEPLOYMENT_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")
set(DEPLOYMENT_TEMPLATE "${CMAKE_CURRENT_LIST_DIR}/../src/service/deployment/deployment.cpp.in")

# Leaves a fault unless this user can read `path`, which is to be a `kind`, "file" or "folder". The
# shell tells: CMake would read a named pipe for ever, and takes what it cannot reach for missing.
function(require_readable kind path)
  execute_process(
    COMMAND sh -c [=[
      if [ -L "$2" ] && [ ! -e "$2" ]; then echo "is a link that leads nowhere"
      elif [ ! -e "$2" ]; then echo "does not exist"
      elif [ "$1" = folder ] && [ ! -d "$2" ]; then echo "is no folder"
      elif [ "$1" = file ] && [ -d "$2" ]; then echo "is a folder, not a file"
      elif [ "$1" = file ] && [ ! -f "$2" ]; then echo "is a named pipe or a device, not a file"
      elif [ ! -r "$2" ] || { [ "$1" = folder ] && [ ! -x "$2" ]; }; then
        echo "is a $1 that $(id -un) may not read"
      fi]=] - "${kind}" "${path}"
    OUTPUT_VARIABLE reason OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(reason)
    set(DEPLOYMENT_FAULT "${path}: ${reason}")
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT)
endfunction()

# Leaves a fault unless `file` is one that can be read, without a mark or bytes that stand before
# the text. Sets `start` in the caller's scope to its first bytes, in hexadecimal digits.
function(require_text file)
  require_readable(file "${file}")
  if(NOT DEPLOYMENT_FAULT)
    file(READ "${file}" start LIMIT 3 HEX)
    if(start STREQUAL efbbbf)
      set(DEPLOYMENT_FAULT "${file}:1: begins with a byte order mark; save it without")
    elseif(start MATCHES "^(fffe|feff|00|..00)")
      set(DEPLOYMENT_FAULT "${file}:1: is in UTF-16; save it in UTF-8 or ASCII")
    endif()
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT start)
endfunction()

# Sets `host` and `port` in the caller's scope to those of `line`, or `fault` to what is wrong with it.
function(read_environment line)
  set(label "[A-Za-z0-9_][A-Za-z0-9_-]*")
  string(REGEX MATCH "^([^ \t]+)[ \t]+([^ \t]+)$" matched "${line}")
  set(host "${CMAKE_MATCH_1}")
  set(port "${CMAKE_MATCH_2}")
  if(line MATCHES "://")
    set(hint ": leave out the scheme")
  elseif(line MATCHES "#")
    set(hint ": a comment needs a line of its own")
  elseif(line MATCHES "[^\t -~]")
    set(hint ": it holds what is no printable ASCII, a no-break space perhaps")
  elseif(line MATCHES ":[0-9]+$")
    set(hint ": write a blank in place of the colon")
  endif()
  if(NOT matched OR DEFINED hint)
    set(fault "expected \"<host> <port>\", found \"${line}\"${hint}")
  elseif(NOT host MATCHES "^${label}([.]${label})*$")
    set(fault "\"${host}\" is no host name: labels of letters, digits, - and _ with dots between \
them, none of them empty or beginning with -")
  elseif(host MATCHES "^[0-9.]+$")
    set(fault "\"${host}\" is an IP address; the service is asked for, and known, by a name")
  elseif(NOT port MATCHES "^[1-9][0-9]*$" OR port GREATER 65535)
    set(fault "\"${port}\" is no port: a number from 1 to 65535 without zeros before it")
  endif()
  return(PROPAGATE fault host port)
endfunction()

# Sets HOST_<index> and PORT_<index> for each of the four environments in the caller's scope, and
# DEPLOYMENT_HOSTS to the list of <host>:<port>.
function(read_environments file)
  require_text("${file}")
  if(DEPLOYMENT_FAULT)
    return(PROPAGATE DEPLOYMENT_FAULT)
  endif()
  file(READ "${file}" rest)
  if(rest STREQUAL "")
    set(DEPLOYMENT_FAULT "${file}: is empty; it is to name the host and port of each environment")
  endif()
  set(DEPLOYMENT_HOSTS "")
  set(line_number 0)
  set(index 0)
  while(NOT rest STREQUAL "" AND NOT DEPLOYMENT_FAULT)
    # Not a CMake list: brackets and semicolons in a comment must not change the line count.
    string(FIND "${rest}\n" "\n" end)
    string(SUBSTRING "${rest}" 0 ${end} line)
    math(EXPR next "${end} + 1")
    string(LENGTH "${rest}" length)
    if(next LESS length)
      string(SUBSTRING "${rest}" ${next} -1 rest)
    else()
      set(rest "")
    endif()
    math(EXPR line_number "${line_number} + 1")
    string(STRIP "${line}" line)
    if(line STREQUAL "" OR line MATCHES "^#")
      continue()
    endif()
    read_environment("${line}")
    if(NOT fault AND index EQUAL 4)
      set(fault "a fifth environment; there are four")
    endif()
    if(fault)
      set(DEPLOYMENT_FAULT "${file}:${line_number}: ${fault}")
    endif()
    set(HOST_${index} "${host}" PARENT_SCOPE)
    set(PORT_${index} "${port}" PARENT_SCOPE)
    list(APPEND DEPLOYMENT_HOSTS "${host}:${port}")
    math(EXPR index "${index} + 1")
  endwhile()
  if(NOT DEPLOYMENT_FAULT AND index LESS 4)
    set(DEPLOYMENT_FAULT "${file}:${line_number}: ends after ${index} of four environments")
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT DEPLOYMENT_HOSTS)
endfunction()

# Sets `certificate` in the caller's scope to the one that `file` holds, or leaves a fault.
function(read_certificate file)
  require_text("${file}")
  if(DEPLOYMENT_FAULT)
    return(PROPAGATE DEPLOYMENT_FAULT)
  endif()
  set(begin "-----BEGIN CERTIFICATE-----")
  set(end "-----END CERTIFICATE-----")
  file(READ "${file}" text)
  string(REGEX MATCHALL "${begin}[A-Za-z0-9+/=\r\n]+${end}" certificate "${text}")
  list(LENGTH certificate count)
  if(count GREATER 1)
    set(fault "holds ${count} certificates; each needs a file of its own")
  elseif(start MATCHES "^308")
    set(fault "is in DER; a certificate becomes PEM by: openssl x509 -inform DER -in FILE -out NEW")
  elseif(text MATCHES "(^|\n)[ \t]+-----BEGIN")
    set(fault "is indented; every line of a certificate begins in the first column")
  elseif(count EQUAL 0 AND text MATCHES "${begin}")
    set(fault "is damaged; from \"${begin}\" to \"${end}\" there is to be base64, and nothing else")
  elseif(count EQUAL 0)
    string(REGEX MATCH "-----BEGIN[^\n]*-----" found "${text}")
    set(fault "holds no certificate: no line says \"${begin}\"")
    if(found)
      string(APPEND fault ", but one \"${found}\"")
    endif()
  endif()
  if(DEFINED fault)
    set(DEPLOYMENT_FAULT "${file}: ${fault}")
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT certificate)
endfunction()

# Sets `field`, notBefore or notAfter, in the caller's scope to that of the certificate of which
# openssl tells `facts`, as YYYYMMDD, or unsets it.
function(read_day field facts)
  unset(${field})
  if(facts MATCHES "${field}=([A-Z][a-z][a-z]) +([0-9]+) [0-9:]+ ([0-9]+) GMT")
    string(FIND "-- JanFebMarAprMayJunJulAugSepOctNovDec" "${CMAKE_MATCH_1}" month)
    math(EXPR ${field} "(${CMAKE_MATCH_3} * 100 + ${month} / 3) * 100 + ${CMAKE_MATCH_2}")
  endif()
  return(PROPAGATE ${field})
endfunction()

# Sets notBefore and notAfter in the caller's scope, as YYYYMMDD, and `is_root` to those of the
# certificate in `file`, or leaves a fault when the TLS library could not verify a service by it.
# Asks OPENSSL_COMMAND.
function(judge_certificate file)
  execute_process(COMMAND "${OPENSSL_COMMAND}" x509 -in "${file}" -noout -dates -issuer -subject
                          -purpose -text
                  OUTPUT_VARIABLE facts ERROR_QUIET)
  # Of a certificate that is not its own issuer's, the signature plays no part.
  execute_process(COMMAND "${OPENSSL_COMMAND}" verify -check_ss_sig -partial_chain
                          -trusted "${file}" "${file}"
                  OUTPUT_VARIABLE verification ERROR_VARIABLE verification)
  read_day(notBefore "${facts}")
  read_day(notAfter "${facts}")
  string(REGEX MATCH "issuer=([^\n]*)" issuer "${facts}")
  set(issuer "${CMAKE_MATCH_1}")
  string(REGEX MATCH "subject=([^\n]*)" subject "${facts}")
  string(COMPARE EQUAL "${issuer}" "${CMAKE_MATCH_1}" is_root)
  if(NOT DEFINED notBefore OR NOT DEFINED notAfter)
    set(fault "the certificate is damaged; openssl cannot read it")
  endif()
  if(NOT DEFINED fault AND verification MATCHES "signature failure")
    set(fault "the certificate is damaged; its signature of itself does not verify")
  elseif(NOT DEFINED fault AND NOT facts MATCHES "SSL server CA : Yes")
    set(reason "openssl does not tell why")
    if(NOT facts MATCHES "X509v3 Basic Constraints:[^\n]*\n *CA:TRUE")
      set(reason "its basicConstraints do not say CA:TRUE")
    elseif(facts MATCHES "X509v3 Key Usage:[^\n]*\n([^\n]*)"
           AND NOT CMAKE_MATCH_1 MATCHES "Certificate Sign")
      set(reason "its keyUsage lacks keyCertSign")
    elseif(facts MATCHES "X509v3 Extended Key Usage:[^\n]*\n([^\n]*)"
           AND NOT CMAKE_MATCH_1 MATCHES "TLS Web Server Authentication")
      set(reason "its extendedKeyUsage lacks serverAuth")
    endif()
    set(fault "the certificate of no CA for TLS servers: ${reason}")
  elseif(NOT DEFINED fault
         AND facts MATCHES "Public Key Algorithm: rsa[A-Za-z]*\n[^\n]*[(]([0-9]+) bit"
         AND CMAKE_MATCH_1 LESS 2048)
    set(fault "its RSA key has ${CMAKE_MATCH_1} bits; the TLS library demands 2048")
  endif()
  if(DEFINED fault)
    set(DEPLOYMENT_FAULT "${file}: ${fault}")
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT notBefore notAfter is_root)
endfunction()

# Sets TRUST_ANCHOR_LITERALS in the caller's scope to one string literal per file, in name order,
# and DEPLOYMENT_ANCHORS to the list of "<notAfter> <notBefore> <file name>", the days as YYYYMMDD.
function(read_trust_anchors folder)
  require_readable(folder "${folder}")
  if(DEPLOYMENT_FAULT)
    return(PROPAGATE DEPLOYMENT_FAULT)
  endif()
  file(GLOB names RELATIVE "${folder}" "${folder}/*")
  file(GLOB odd "${folder}/*[][;]*")
  # What is hidden, file managers and editors leave.
  list(FILTER names EXCLUDE REGEX "^[.]")
  list(SORT names)
  find_program(OPENSSL_COMMAND openssl NO_CACHE)
  if(NOT OPENSSL_COMMAND)
    set(DEPLOYMENT_FAULT "openssl: not found; it tells whether the trust anchors are sound")
  elseif(odd)
    set(DEPLOYMENT_FAULT "${odd}: a file name with ; [ or ], which CMake would divide")
  elseif(NOT names)
    set(DEPLOYMENT_FAULT "${folder}: holds no *.pem file; nothing could vouch for the service")
  endif()
  if(DEPLOYMENT_FAULT)
    return(PROPAGATE DEPLOYMENT_FAULT)
  endif()
  set(TRUST_ANCHOR_LITERALS "")
  set(DEPLOYMENT_ANCHORS "")
  set(has_root NO)
  foreach(name IN LISTS names)
    set(file "${folder}/${name}")
    if(name MATCHES "[.]pem$")
      read_certificate("${file}")
    else()
      set(DEPLOYMENT_FAULT "${file}: is not called *.pem; nothing else belongs here")
    endif()
    if(NOT DEPLOYMENT_FAULT)
      judge_certificate("${file}")
    endif()
    if(DEPLOYMENT_FAULT)
      break()
    endif()
    string(APPEND TRUST_ANCHOR_LITERALS "    R\"pem(${certificate}\n)pem\",\n")
    list(APPEND DEPLOYMENT_ANCHORS "${notAfter} ${notBefore} ${name}")
    if(is_root)
      set(has_root YES)
    endif()
  endforeach()
  if(NOT DEPLOYMENT_FAULT AND NOT has_root)
    set(DEPLOYMENT_FAULT "${folder}: holds no self-signed certificate; \
without its root, no other vouches for anybody")
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT TRUST_ANCHOR_LITERALS DEPLOYMENT_ANCHORS)
endfunction()

# Writes `source` from the deployment folder `folder` and sets DEPLOYMENT_HOSTS and
# DEPLOYMENT_ANCHORS in the caller's scope, or DEPLOYMENT_FAULT alone.
function(write_deployment folder source)
  if(folder MATCHES "[][*?;]")
    set(DEPLOYMENT_FAULT "${folder}: a path with ; * ? [ or ], which CMake would expand or divide")
  else()
    require_readable(folder "${folder}")
  endif()
  if(NOT DEPLOYMENT_FAULT)
    read_environments("${folder}/environments.txt")
  endif()
  if(NOT DEPLOYMENT_FAULT)
    read_trust_anchors("${folder}/trust-anchors")
  endif()
  if(NOT DEPLOYMENT_FAULT)
    list(LENGTH DEPLOYMENT_ANCHORS TRUST_ANCHOR_COUNT)
    configure_file("${DEPLOYMENT_TEMPLATE}" "${source}" @ONLY)
  endif()
  return(PROPAGATE DEPLOYMENT_FAULT DEPLOYMENT_HOSTS DEPLOYMENT_ANCHORS)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  if(NOT DEPLOYMENT_DIR OR NOT DEPLOYMENT_SOURCE)
    message(FATAL_ERROR " DEPLOYMENT_DIR and DEPLOYMENT_SOURCE must be given with -D, before -P")
  endif()
  write_deployment("${DEPLOYMENT_DIR}" "${DEPLOYMENT_SOURCE}")
  if(DEPLOYMENT_FAULT)
    # The blank keeps the line in one piece.
    message(FATAL_ERROR " ${DEPLOYMENT_FAULT}")
  endif()
endif()
