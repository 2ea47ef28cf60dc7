// The angle module: frames in through two rings, positions out through a callback.
#pragma once
#include <cstdint>

using AngleResultCallback = uint32_t (*)(uint32_t position);

int velquare_orienAngle_init(int32_t micNum, int32_t frameSize, int32_t sampleRate,
                             int32_t bitDepth, AngleResultCallback resultCallback);
int velquare_orienAngle_uninit();
int velquare_orienAngle_writeAudioData(const uint8_t *data, int32_t len);
int velquare_orienAngle_writeAudioSpkinData(const uint8_t *data, int32_t len);
uint32_t velquare_orienAngle_process(const uint8_t *data, int32_t len);
