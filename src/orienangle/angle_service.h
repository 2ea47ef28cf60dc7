// The angle service thread: drains the capture pools into the angle module,
// or meters levels in test mode.
#pragma once

void *velquare_orienangle_proc(void *);
int velquare_orienangle_proc_start();  // sets angleProcRun and starts the thread; 0
int velquare_orienangle_proc_stop();   // clears angleProcRun; 0
