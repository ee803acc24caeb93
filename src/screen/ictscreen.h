// The ICT screen; its painting is MainWindow::ICTpaintEvent().
#pragma once

// Draws into nowhere what every level's screen shows: fonts are looked up and their glyphs made
// when they are first drawn, which would hold up the first frame.
void loadGlyphs();
