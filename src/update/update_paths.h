// Files of the update, all in the executable's directory (a build-time edge).
#pragma once
#include "edge_config.h"

constexpr char kUpdateExePath[] = QV_ROOT_DIR "/quenvarile";      // the daemon's executable
constexpr char kUpdateOtaPath[] = QV_ROOT_DIR "/quenvarile_ota";  // the file being received
constexpr char kUpdateBakPath[] =
    QV_ROOT_DIR "/quenvarile_Bak";  // the executable before the last update
// Present while the new executable is on trial (the supervisor keeps it or goes back).
constexpr char kUpdateTrialPath[] = QV_ROOT_DIR "/quenvarile_trial";
constexpr char kUpdateDirPath[] = QV_ROOT_DIR;
