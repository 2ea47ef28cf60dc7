// Reference voice probabilities of a recording: runs the first release of the
// original voice model (the WebAssembly build in @jitsi/rnnoise-wasm 0.2.1) on
// microphone 0 (channel 0) of a 48 kHz 16-bit WAV, two 480-sample calls per
// 20 ms frame, as the estimator calls its voice model.
//
//   node reference.mjs IN.wav [OUT.txt]
//
// Writes one line per 20 ms frame: the two probabilities in percent,
// truncated ("97 3"). Offline only: neither the daemon nor its tests need it.
import { readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';

const kHalf = 480;
const require = createRequire(import.meta.url);
const wasmPath = require.resolve('@jitsi/rnnoise-wasm/dist/rnnoise.wasm');

function readWav(path) {
  const buf = readFileSync(path);
  if (buf.toString('ascii', 0, 4) !== 'RIFF' || buf.toString('ascii', 8, 12) !== 'WAVE')
    throw new Error(`${path}: not a WAV file`);
  let channels = 0, rate = 0, bits = 0;
  for (let at = 12; at + 8 <= buf.length;) {
    const id = buf.toString('ascii', at, at + 4);
    const size = buf.readUInt32LE(at + 4);
    if (id === 'fmt ') {
      channels = buf.readUInt16LE(at + 10);
      rate = buf.readUInt32LE(at + 12);
      bits = buf.readUInt16LE(at + 22);
    } else if (id === 'data') {
      if (bits !== 16 || rate !== 48000) throw new Error(`${path}: need 16-bit 48000 Hz, got ${bits}-bit ${rate} Hz`);
      const frames = Math.floor(Math.min(size, buf.length - at - 8) / (2 * channels));
      const mic0 = new Float32Array(frames);
      for (let i = 0; i < frames; ++i) mic0[i] = buf.readInt16LE(at + 8 + 2 * channels * i);
      return mic0;
    }
    at += 8 + size + (size & 1);
  }
  throw new Error(`${path}: no data chunk`);
}

async function referenceModel() {
  let memory;
  const imports = {
    a: {
      // emscripten_resize_heap: grow to at least the requested size.
      a: (requested) => {
        const have = memory.buffer.byteLength;
        if (requested <= have) return 1;
        try {
          memory.grow((requested - have + 65535) >>> 16);
          return 1;
        } catch {
          return 0;
        }
      },
      // emscripten_memcpy_big
      b: (dest, src, num) => {
        const heap = new Uint8Array(memory.buffer);
        heap.copyWithin(dest, src, src + num);
      },
    },
  };
  const { instance } = await WebAssembly.instantiate(readFileSync(wasmPath), imports);
  const x = instance.exports;
  memory = x.c;
  x.d();  // static constructors
  const state = x.f(0);
  const inPtr = x.g(kHalf * 4), outPtr = x.g(kHalf * 4);
  return (samples) => {
    new Float32Array(memory.buffer, inPtr, kHalf).set(samples);
    return x.j(state, outPtr, inPtr);
  };
}

const [inPath, outPath] = process.argv.slice(2);
if (!inPath) {
  console.error('usage: node reference.mjs IN.wav [OUT.txt]');
  process.exit(2);
}
const mic0 = readWav(inPath);
const processHalf = await referenceModel();
const lines = [];
for (let s = 0; s + 2 * kHalf <= mic0.length; s += 2 * kHalf) {
  const p1 = processHalf(mic0.subarray(s, s + kHalf));
  const p2 = processHalf(mic0.subarray(s + kHalf, s + 2 * kHalf));
  lines.push(`${Math.floor(p1 * 100)} ${Math.floor(p2 * 100)}`);
}
const text = lines.join('\n') + '\n';
if (outPath) writeFileSync(outPath, text); else process.stdout.write(text);
