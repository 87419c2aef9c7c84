#pragma once

// Makes the pictures ":/images/..." known to Qt. The collection stands in a static library, of
// which the linker takes only what is called; call this before the first picture is wanted.
void init_images();
