#include "console_decoder.h"

#include <cstdio>

namespace {

constexpr size_t kLevelCodes = kLevelMicCount + 1;

bool isLevelCode(uint8_t code) {
  return code == kLevelAdequate || code == kLevelLow || code == kLevelSilent;
}

bool allLevelCodes(const uint8_t *frame) {
  for (size_t i = 1; i <= kLevelCodes; ++i)
    if (!isLevelCode(frame[i])) return false;
  return true;
}

std::string levelWord(uint8_t code) {
  switch (code) {
    case kLevelAdequate: return "ok";
    case kLevelLow: return "low";
    case kLevelSilent: return "silent";
    default: {
      char hex[8];
      snprintf(hex, sizeof hex, "0x%02x", code);
      return hex;
    }
  }
}

std::string hexBytes(const uint8_t *bytes, size_t len) {
  std::string s;
  char hex[4];
  for (size_t i = 0; i < len; ++i) {
    snprintf(hex, sizeof hex, i ? " %02x" : "%02x", bytes[i]);
    s += hex;
  }
  return s;
}

}  // namespace

void ConsoleDecoder::feed(const uint8_t *data, size_t len, std::vector<ConsoleEvent> &out) {
  pending_.insert(pending_.end(), data, data + len);
  decode(false, out);
}

void ConsoleDecoder::flush(std::vector<ConsoleEvent> &out) {
  decode(true, out);
  emitText(out);
}

void ConsoleDecoder::emitText(std::vector<ConsoleEvent> &out) {
  if (text_.empty()) return;
  ConsoleEvent e;
  e.text.swap(text_);
  out.push_back(e);
}

// Both device frames start with FF. A position frame is recognised by its
// fixed bytes and checksum; any other FF may start a level report, whose
// only check is its checksum, so it waits for 11 bytes or a quiet line.
void ConsoleDecoder::decode(bool quiet, std::vector<ConsoleEvent> &out) {
  size_t i = 0;
  const size_t n = pending_.size();
  while (i < n) {
    const uint8_t *p = pending_.data() + i;
    const size_t avail = n - i;
    if (p[0] != kDeviceFrameStart) {
      text_ += static_cast<char>(p[0]);
      ++i;
      continue;
    }
    ConsoleEvent e;
    e.kind = ConsoleEvent::Position;
    if (avail >= kPositionFrameSize && hostDecodePosition(p, &e.position)) {
      emitText(out);
      out.push_back(e);
      i += kPositionFrameSize;
      continue;
    }
    if (avail < kLevelFrameSize && !quiet) break;  // may still become a frame
    if (avail >= kLevelFrameSize && (hostLevelFrameValid(p) || allLevelCodes(p))) {
      emitText(out);
      e.kind = hostLevelFrameValid(p) ? ConsoleEvent::Levels : ConsoleEvent::LevelsBadChecksum;
      for (size_t c = 0; c < kLevelCodes; ++c) e.codes[c] = p[1 + c];
      if (e.kind == ConsoleEvent::LevelsBadChecksum) e.text.assign(p, p + kLevelFrameSize);
      out.push_back(e);
      i += kLevelFrameSize;
      continue;
    }
    text_ += static_cast<char>(p[0]);
    ++i;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(i));
}

std::string describePosition(uint8_t position) {
  std::string s = std::to_string(position) + ": ";
  if (position <= kPositionLastIndex)
    return s + std::to_string(static_cast<int>(position) - kPositionBroadsideIndex) + " degrees";
  if (position == kPositionNone) return s + "no direction";
  if (position == kPositionSpeakerPlaying) return s + "loudspeaker playing";
  return s + "unknown code";
}

std::string escapeText(const std::string &bytes) {
  std::string s;
  for (unsigned char c : bytes) {
    if (c >= 0x20 && c < 0x7F && c != '\\') {
      s += static_cast<char>(c);
    } else {
      char hex[8];
      snprintf(hex, sizeof hex, "\\x%02x", c);
      s += hex;
    }
  }
  return s;
}

std::string formatEvent(const ConsoleEvent &event, bool rawDb) {
  switch (event.kind) {
    case ConsoleEvent::Position: return "position " + describePosition(event.position);
    case ConsoleEvent::Levels: {
      std::string s = rawDb ? "levels (dB)" : "levels";
      for (size_t c = 0; c < kLevelCodes; ++c) {
        s += c < kLevelMicCount ? " mic" + std::to_string(c + 1) + "=" : " line-in=";
        s += rawDb ? std::to_string(event.codes[c]) : levelWord(event.codes[c]);
      }
      return s;
    }
    case ConsoleEvent::LevelsBadChecksum:
      return "level report with bad checksum: " +
             hexBytes(reinterpret_cast<const uint8_t *>(event.text.data()), event.text.size());
    case ConsoleEvent::Text: return "text \"" + escapeText(event.text) + "\"";
  }
  return {};
}
