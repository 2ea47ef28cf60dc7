// The one call the host link makes outside itself. It is declared here so
// that the host link includes nothing above it; the update defines it, and
// the build names the update as the host link's link-only dependency.
#pragma once

// The host's update command starts the update (update/update_install.cpp),
// which takes the host line over until it ends.
int velquare_ymodem_update_start();
