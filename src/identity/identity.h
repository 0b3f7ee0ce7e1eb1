#pragma once

namespace brivasign {

// What a product was built from, for support: it stands in the module as text too, because a
// library in the field cannot be asked. All texts are constant and not empty.
struct Identity {
  const char* version;     // the module's
  const char* commit;      // in full; "-dirty" behind it: with changes; "unknown": outside git
  const char* platform;    // "linux-x86_64" or "macos-arm64", for instance
  const char* tlsLibrary;  // name, version and date
  const char* line;        // all of these, the hosts and the number of trust anchors
};

// Its definition comes with the deployment.
extern "C" const Identity brivasignIdentity;

}  // namespace brivasign
