// Verification of a signed update file with libsodium, streaming: BLAKE2b-512
// of the executable's bytes in 4 KB pieces, then Ed25519 over that hash and
// over the signature with its trusted comment, as minisign signs them. Only
// the prehashed algorithm ("ED") is taken: the legacy one signs the whole
// file directly, which Ed25519 can only verify with the whole file in memory.
#include "update/update_signature.h"

#include <dirent.h>
#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "edge_config.h"

namespace {

constexpr size_t kKeyIdBytes = 8;
constexpr size_t kSigBytes = crypto_sign_BYTES;              // 64
constexpr size_t kPublicBytes = crypto_sign_PUBLICKEYBYTES;  // 32
constexpr size_t kHashBytes = crypto_generichash_BYTES_MAX;  // 64
constexpr size_t kTextLineMax = 1024;

struct PublicKey {
  uint8_t id[kKeyIdBytes];
  uint8_t key[kPublicBytes];
};

struct Signature {
  uint8_t id[kKeyIdBytes];
  uint8_t sig[kSigBytes];
  uint8_t global[kSigBytes];
  char trusted[kTextLineMax];  // the trusted comment, without its prefix
  size_t trustedLen;
};

bool readAll(int fd, void *to, size_t len, off_t at) {
  return pread(fd, to, len, at) == static_cast<ssize_t>(len);
}

// The line at *text (up to '\n' or the end), advancing *text past it.
bool nextLine(const char **text, const char *end, const char **line, size_t *len) {
  if (*text >= end) return false;
  const char *nl = static_cast<const char *>(memchr(*text, '\n', size_t(end - *text)));
  *line = *text;
  *len = size_t((nl ? nl : end) - *text);
  *text = nl ? nl + 1 : end;
  return true;
}

bool base64Exactly(const char *text, size_t len, uint8_t *out, size_t want) {
  size_t got = 0;
  return sodium_base642bin(out, want, text, len, nullptr, &got, nullptr,
                           sodium_base64_VARIANT_ORIGINAL) == 0 &&
         got == want;
}

bool startsWith(const char *line, size_t len, const char *prefix) {
  const size_t n = strlen(prefix);
  return len >= n && memcmp(line, prefix, n) == 0;
}

// "untrusted comment: ...", base64 of "ED" | key id | signature,
// "trusted comment: ...", base64 of the global signature.
bool parseSignature(const char *text, size_t len, Signature *out) {
  const char *at = text, *end = text + len, *line;
  size_t n;
  uint8_t packed[2 + kKeyIdBytes + kSigBytes];
  if (!nextLine(&at, end, &line, &n) || !startsWith(line, n, "untrusted comment:")) return false;
  if (!nextLine(&at, end, &line, &n) || !base64Exactly(line, n, packed, sizeof packed))
    return false;
  if (packed[0] != 'E' || packed[1] != 'D') {
    puts("update: signature is not prehashed (sign with minisign 0.10 or later, without -l)");
    return false;
  }
  memcpy(out->id, packed + 2, kKeyIdBytes);
  memcpy(out->sig, packed + 2 + kKeyIdBytes, kSigBytes);
  static const char kTrusted[] = "trusted comment: ";
  if (!nextLine(&at, end, &line, &n) || !startsWith(line, n, kTrusted)) return false;
  out->trustedLen = n - strlen(kTrusted);
  if (out->trustedLen > sizeof out->trusted) return false;
  memcpy(out->trusted, line + strlen(kTrusted), out->trustedLen);
  return nextLine(&at, end, &line, &n) && base64Exactly(line, n, out->global, kSigBytes);
}

// A minisign public key file: a comment line, then base64 of "Ed" | key id | key.
bool readPublicKey(const char *path, PublicKey *out) {
  char text[kTextLineMax];
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t len = read(fd, text, sizeof text);
  close(fd);
  if (len <= 0) return false;
  const char *at = text, *end = text + len, *line;
  size_t n;
  uint8_t packed[2 + kKeyIdBytes + kPublicBytes];
  if (!nextLine(&at, end, &line, &n) || !startsWith(line, n, "untrusted comment:")) return false;
  if (!nextLine(&at, end, &line, &n) || !base64Exactly(line, n, packed, sizeof packed) ||
      packed[0] != 'E' || packed[1] != 'd')
    return false;
  memcpy(out->id, packed + 2, kKeyIdBytes);
  memcpy(out->key, packed + 2 + kKeyIdBytes, kPublicBytes);
  return true;
}

bool isKeyName(const char *name) {
  const size_t n = strlen(name);
  return n > 4 && name[0] != '.' && strcmp(name + n - 4, ".pub") == 0;
}

// The trusted key whose id the signature names.
bool findKey(const char *keyDir, const uint8_t *id, PublicKey *out) {
  DIR *dir = opendir(keyDir);
  if (!dir) return false;
  bool found = false;
  char path[512];
  for (dirent *e; !found && (e = readdir(dir)) != nullptr;) {
    if (!isKeyName(e->d_name)) continue;
    snprintf(path, sizeof path, "%s/%s", keyDir, e->d_name);
    found = readPublicKey(path, out) && memcmp(out->id, id, kKeyIdBytes) == 0;
  }
  closedir(dir);
  return found;
}

// BLAKE2b-512 of the file's first `len` bytes.
bool hashPrefix(int fd, off_t len, uint8_t *hash) {
  crypto_generichash_state state;
  crypto_generichash_init(&state, nullptr, 0, kHashBytes);
  uint8_t buf[4096];
  for (off_t at = 0; at < len;) {
    const size_t want = size_t(len - at) < sizeof buf ? size_t(len - at) : sizeof buf;
    const ssize_t n = pread(fd, buf, want, at);
    if (n <= 0) return false;
    crypto_generichash_update(&state, buf, size_t(n));
    at += n;
  }
  return crypto_generichash_final(&state, hash, kHashBytes) == 0;
}

bool refuse(const char *why) {
  printf("update: signature refused: %s\n", why);
  return false;
}

}  // namespace

UpdateTrust velquare_update_trust(const char *keyDir) {
  DIR *dir = opendir(keyDir);
  if (!dir) return UPDATE_UNAUTHENTICATED;
  bool any = false;
  for (dirent *e; !any && (e = readdir(dir)) != nullptr;) any = isKeyName(e->d_name);
  closedir(dir);
  return any ? UPDATE_SIGNED_ONLY : UPDATE_UNAUTHENTICATED;
}

bool velquare_update_signature_valid(int fd, const char *keyDir) {
  if (sodium_init() < 0) return refuse("no crypto library");
  struct stat st {};
  char footer[kSignatureFooterBytes + 1] = {};
  if (fstat(fd, &st) != 0 || st.st_size < off_t(kSignatureFooterBytes) ||
      !readAll(fd, footer, kSignatureFooterBytes, st.st_size - off_t(kSignatureFooterBytes)) ||
      memcmp(footer + 8, kSignatureMagic, 8) != 0)
    return refuse("the file carries no signature");
  size_t textLen = 0;
  for (int i = 0; i < 8; ++i) {
    const char c = footer[i];
    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (digit < 0) return refuse("damaged trailer");
    textLen = textLen * 16 + size_t(digit);
  }
  if (textLen == 0 || textLen > kSignatureTextMaxBytes ||
      off_t(textLen + kSignatureFooterBytes) >= st.st_size)
    return refuse("damaged trailer");
  const off_t exeLen = st.st_size - off_t(textLen + kSignatureFooterBytes);
  char text[kSignatureTextMaxBytes];
  Signature sig{};
  if (!readAll(fd, text, textLen, exeLen) || !parseSignature(text, textLen, &sig))
    return refuse("not a minisign signature");
  PublicKey key{};
  if (!findKey(keyDir, sig.id, &key)) return refuse("signed by a key this board does not trust");
  uint8_t hash[kHashBytes];
  if (!hashPrefix(fd, exeLen, hash)) return refuse("cannot read the file");
  if (crypto_sign_verify_detached(sig.sig, hash, sizeof hash, key.key) != 0)
    return refuse("the signature does not match the file");
  uint8_t global[kSigBytes + kTextLineMax];
  memcpy(global, sig.sig, kSigBytes);
  memcpy(global + kSigBytes, sig.trusted, sig.trustedLen);
  if (crypto_sign_verify_detached(sig.global, global, kSigBytes + sig.trustedLen, key.key) != 0)
    return refuse("the trusted comment does not match its signature");
  printf("update: signature valid (%.*s)\n", int(sig.trustedLen), sig.trusted);
  return true;
}

void velquare_update_trust_report() {
  if (velquare_update_trust(QV_UPDATE_KEYS_DIR) == UPDATE_UNAUTHENTICATED)
    printf("update: no key in %s: updates are not authenticated\n", QV_UPDATE_KEYS_DIR);
  else
    printf("update: only updates signed by a key in %s are installed\n", QV_UPDATE_KEYS_DIR);
}
