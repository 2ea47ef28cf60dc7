// Signed update files: the executable's bytes followed by a trailer that
// carries a minisign signature of them (prehashed Ed25519, made with
// `minisign -S`; see scripts/sign-update):
//
//   executable bytes | .minisig text | its length, 8 hex digits | "QVSIGNED"
//
// The trailer only follows the ELF data, so the signed file still runs.
#pragma once
#include <cstddef>

constexpr char kSignatureMagic[] = "QVSIGNED";  // the file's last 8 bytes
constexpr size_t kSignatureFooterBytes = 16;    // length digits + magic
constexpr size_t kSignatureTextMaxBytes = 2048;

enum UpdateTrust {
  UPDATE_UNAUTHENTICATED,  // no key installed: every file is taken as before
  UPDATE_SIGNED_ONLY,      // at least one key: only a file signed by one of them
};

// The board's mode: signed-only when the key directory holds a file ending in
// ".pub" (even one that cannot be read: a key that was meant to be trusted
// never opens the board to unsigned files).
UpdateTrust velquare_update_trust(const char *keyDir);

// True when the file at fd carries a valid signature, global signature
// included, by one of the keys in keyDir over exactly the bytes before its
// trailer. Reads the file in fixed-size pieces; prints why it refuses.
bool velquare_update_signature_valid(int fd, const char *keyDir);

// Says once, at start-up, whether updates are authenticated.
void velquare_update_trust_report();
