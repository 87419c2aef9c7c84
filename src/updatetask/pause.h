#pragma once

// Lets the device have its time: blocks the calling thread for so many seconds. Every pause of an
// update goes through here.
void pause_seconds(unsigned seconds);
