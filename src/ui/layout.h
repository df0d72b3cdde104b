#pragma once
// The window's layout rules as pure functions over twips, so tests can call
// them without a window. UpdateTabs applies the steps in order and stops at the
// first move to a negative size, leaving the rest hidden until the next pass.
#include "ui/twips.h"

#include <optional>
#include <string>
#include <vector>

namespace zpe {

// Design sizes (twips).
inline constexpr int kDesignClientWidth = 14025;
inline constexpr int kDesignClientHeight = 8955;
inline constexpr int kStatusBarHeight = 255;
inline constexpr int kButtonBarWidth = 4215;
inline constexpr int kButtonBarHeight = 495;
inline constexpr int kPicFormationWidth = 2055;
inline constexpr int kPicFormationHeight = 3255;
inline constexpr int kPlayDetailsHeight = 3615;
inline constexpr int kSeqDetailsHeight = 2775;
inline constexpr int kNotesLeft = 6000;
inline constexpr int kNotesTop = 240;

enum class TabIndex { Formations = 1, PlaySlots = 2, Plays = 3, Sequences = 4 };

// The controls a layout pass places, shows or captions.
enum class Ctl {
    lvFormations, fraFormationButtons, picFormation, lvPlaySlots, fraPlayDetails, fraPlaySlots,
    lvPlays, lvSequences, fraSeq, fraSeqDetails, cmdSeqDetails, txtCmdNotes, lblSeqUsedBy, lstSeqUsedBy
};

struct LayoutStep {
    enum class Op { Move, Show, Caption } op;
    Ctl ctl;
    TwipRect rect;        // Move: the new geometry (for the notes and the Used by list: inside fraSeqDetails)
    std::string caption;  // Caption: the new text
    bool operator==(const LayoutStep&) const = default;
};

struct LayoutInput {
    int tab = 1;          // selected tab, 1..4
    TwipRect client;      // the tab strip's display area
    bool showFormationGFX = false;
    bool showPlaySlotDetails = false;
    bool showSeqDetails = false;
    // The display area's height at the design size: a taller window gives half
    // of what it has more to the sequence editor (0: no growth).
    int designHeight = 0;
};

// The sequence editor's and the play picture frame's heights: their design
// heights, and half of what the display area is taller than at the design size.
int seqDetailsHeight(const LayoutInput& in);
int playDetailsHeight(const LayoutInput& in);
// How many times its design size a picture is drawn (1 at the design size):
// the largest whole factor the room allows, so the window shows exactly what
// `zpe render --scale K` writes.
int playPictureScale(const LayoutInput& in);
int formationPictureScale(const LayoutInput& in);
inline constexpr int kPicPlayWidth = 4935;
inline constexpr int kPicPlayHeight = 3255;
inline constexpr int kPlayChoiceWidth = 2100;  // the play selector and its margin, right of the play picture

// The tab strip's place: 32 twips in from the top left, leaving 32 at the right
// and above the status bar. None when the width or height would be negative
// (the strip then keeps its size).
std::optional<TwipRect> tabStripRect(int scaleWidth, int scaleHeight, int statusBarHeight);

// The display area inside a tab strip whose header is `headerHeight` twips
// high and whose frame is `border` twips wide.
TwipRect tabClientArea(const TwipRect& strip, int headerHeight, int border);

// The moves, shows and captions of one pass for the selected tab, in order
// (after every tab control has been hidden).
std::vector<LayoutStep> tabLayout(const LayoutInput& in);

// Whether a step can be applied: a move to a negative width or height fails.
bool stepApplies(const LayoutStep& step);

}  // namespace zpe
