// The platform's bounded formatting, with what platforms differ in: the length they report of a
// text that was cut.
#pragma once

enum class CutLength { Whole, Kept, Failure };

extern CutLength reported_of_cut_text; // Whole unless a test says otherwise
