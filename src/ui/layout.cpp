#include "ui/layout.h"

#include <algorithm>
#include <cmath>

namespace zpe {

namespace {
LayoutStep move(Ctl c, int l, int t, int w, int h) { return {LayoutStep::Op::Move, c, {l, t, w, h}, {}}; }
LayoutStep show(Ctl c) { return {LayoutStep::Op::Show, c, {}, {}}; }
LayoutStep caption(Ctl c, std::string text) { return {LayoutStep::Op::Caption, c, {}, std::move(text)}; }
}  // namespace

std::optional<TwipRect> tabStripRect(int scaleWidth, int scaleHeight, int statusBarHeight) {
    const TwipRect r{32, 32, scaleWidth - 64, scaleHeight - 64 - statusBarHeight};
    if (r.width < 0 || r.height < 0) return std::nullopt;
    return r;
}

TwipRect tabClientArea(const TwipRect& strip, int headerHeight, int border) {
    return {strip.left + border, strip.top + headerHeight + border, strip.width - 2 * border,
            strip.height - headerHeight - 2 * border};
}

bool stepApplies(const LayoutStep& step) {
    return step.op != LayoutStep::Op::Move || (step.rect.width >= 0 && step.rect.height >= 0);
}

int seqDetailsHeight(const LayoutInput& in) {
    const int extra = in.designHeight > 0 ? std::max(0, in.client.height - in.designHeight) : 0;
    return kSeqDetailsHeight + extra / 2;
}

int playDetailsHeight(const LayoutInput& in) {
    const int extra = in.designHeight > 0 ? std::max(0, in.client.height - in.designHeight) : 0;
    return kPlayDetailsHeight + extra / 2;
}

int playPictureScale(const LayoutInput& in) {
    const int byWidth = (in.client.width - 120 - kPlayChoiceWidth) / kPicPlayWidth;
    const int byHeight = (playDetailsHeight(in) - (kPlayDetailsHeight - kPicPlayHeight)) / kPicPlayHeight;
    return std::max(1, std::min(byWidth, byHeight));
}

int formationPictureScale(const LayoutInput& in) {
    const int byHeight = (in.client.height - kButtonBarHeight) / kPicFormationHeight;
    const int byWidth = in.client.width / 3 / kPicFormationWidth;  // the list keeps two thirds
    return std::max(1, std::min(byWidth, byHeight));
}

std::vector<LayoutStep> tabLayout(const LayoutInput& in) {
    const int CL = in.client.left, CT = in.client.top, CW = in.client.width, CH = in.client.height;
    std::vector<LayoutStep> steps;
    switch (static_cast<TabIndex>(in.tab)) {
    case TabIndex::Formations: {
        const int scale = formationPictureScale(in);
        const int fw = kButtonBarWidth, fh = kButtonBarHeight, pw = kPicFormationWidth * scale, ph = kPicFormationHeight * scale;
        if (in.showFormationGFX) {
            steps.push_back(show(Ctl::picFormation));
            // Vertically centred in the area above the button bar (half twips round to even).
            const int top = CT + static_cast<int>(std::nearbyint((CH - fh) / 2.0 - ph / 2.0));
            steps.push_back(move(Ctl::picFormation, CL, top, pw, ph));
            steps.push_back(move(Ctl::lvFormations, CL + pw, CT, CW - pw, CH - fh));
        } else {
            steps.push_back(move(Ctl::lvFormations, CL, CT, CW, CH - fh));
        }
        steps.push_back(move(Ctl::fraFormationButtons, CL + CW - fw, CT + CH - fh, fw, fh));
        steps.push_back(show(Ctl::lvFormations));
        steps.push_back(show(Ctl::fraFormationButtons));
        break;
    }
    case TabIndex::PlaySlots: {
        const int bw = kButtonBarWidth, bh = kButtonBarHeight, dh = playDetailsHeight(in);
        if (!in.showPlaySlotDetails) {
            steps.push_back(move(Ctl::lvPlaySlots, CL, CT, CW, CH - bh));
            steps.push_back(move(Ctl::fraPlaySlots, CL + CW - bw, CT + CH - bh, bw, bh));
        } else {
            const int listHeight = CH - bh - dh;
            steps.push_back(move(Ctl::lvPlaySlots, CL, CT, CW, listHeight));
            steps.push_back(move(Ctl::fraPlayDetails, CL, CT + listHeight, CW, dh));
            steps.push_back(move(Ctl::fraPlaySlots, CL + CW - bw, CT + listHeight + dh, bw, bh));
            steps.push_back(show(Ctl::fraPlayDetails));
        }
        steps.push_back(show(Ctl::lvPlaySlots));
        steps.push_back(show(Ctl::fraPlaySlots));
        break;
    }
    case TabIndex::Plays:
        steps.push_back(move(Ctl::lvPlays, CL, CT, CW, CH));
        steps.push_back(show(Ctl::lvPlays));
        break;
    case TabIndex::Sequences: {
        const int bw = kButtonBarWidth, bh = kButtonBarHeight, eh = seqDetailsHeight(in);
        steps.push_back(move(Ctl::lvSequences, CL, CT, CW, CH - bh));
        steps.push_back(move(Ctl::fraSeq, CL + CW - bw, CT + CH - bh, bw, bh));
        if (!in.showSeqDetails) {
            steps.push_back(caption(Ctl::cmdSeqDetails, "Show Details"));
        } else {
            const int listHeight = CH - bh - eh;
            steps.push_back(move(Ctl::lvSequences, CL, CT, CW, listHeight));
            steps.push_back(move(Ctl::fraSeqDetails, CL, CT + listHeight, CW, eh));
            steps.push_back(show(Ctl::fraSeqDetails));
            steps.push_back(caption(Ctl::cmdSeqDetails, "Hide Details"));
            // The notes above, the Used by list below, sharing the panel's height.
            const int nw = CW - kNotesLeft - 80, notesHeight = (eh - kNotesTop - 80 - 285) * 2 / 5;
            const int labelTop = kNotesTop + notesHeight + 45, listTop = labelTop + 240;
            steps.push_back(move(Ctl::txtCmdNotes, kNotesLeft, kNotesTop, nw, notesHeight));
            steps.push_back(move(Ctl::lblSeqUsedBy, kNotesLeft, labelTop, nw, 225));
            steps.push_back(move(Ctl::lstSeqUsedBy, kNotesLeft, listTop, nw, eh - 80 - listTop));
        }
        steps.push_back(show(Ctl::lvSequences));
        steps.push_back(show(Ctl::fraSeq));
        break;
    }
    }
    return steps;
}

}  // namespace zpe
