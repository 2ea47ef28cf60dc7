// Error lines of the angle module: "------err: function number ---> text".
// The numbers are fixed message numbers that log readers search for, not the
// lines of this source.
#pragma once
#include <cstdio>

#define QV_ANGLE_ERR(func, number, fmt, ...) \
  printf("------err: %s %d ---> " fmt, func, number, ##__VA_ARGS__)

enum AngleErrNumber {
  ANGLE_ERR_PROCESS_NO_DATA = 104,
  ANGLE_ERR_PROCESS_BAD_LEN = 109,
  ANGLE_ERR_WRITE_BAD_LEN = 301,
  ANGLE_ERR_WRITE_NO_DATA = 307,
  ANGLE_ERR_SPKIN_BAD_LEN = 322,
  ANGLE_ERR_SPKIN_NO_DATA = 328,
  ANGLE_ERR_INIT_ARGS = 476,
  ANGLE_ERR_INIT_RING = 484,
  ANGLE_ERR_INIT_SPKIN_RING = 489,
  ANGLE_ERR_INIT_ESTIMATOR = 496,
  ANGLE_ERR_INIT_MIC_FLOAT = 503,
  ANGLE_ERR_INIT_SPKIN_FLOAT = 510,
  ANGLE_ERR_INIT_THREAD = 527,
};

#define ANGLE_MSG_RING_NOT_INIT "err: audio buff not init Or Audio buff is NULL"
#define ANGLE_MSG_SPKIN_NOT_INIT "err: audio buff Spkin not init Or Audio buff is NULL"
#define ANGLE_MSG_RING_FULL \
  "audio is full, gVelquareSpeach.setAudioBuffNum - gVelquareSpeach.getAudioBuffNum : %llu\n"
#define ANGLE_MSG_SPKIN_FULL                                                                    \
  "audio is full, gVelquareSpeach.setAudioBuffSpkinNum - gVelquareSpeach.getAudioBuffSpkinNum " \
  ": %llu\n"
