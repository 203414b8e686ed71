#pragma once
// Presentation entities that the preview does not draw (markups, annotations,
// views, filters, references, scene display parameters, lights, cameras): each
// is read field by field and dropped, so that the cursor, the current name and
// the current graphics stay right for what follows.

#include "prc/io/bit_reader.h"

namespace prc {

// Annotation sets nest, one recursion per level; grouping annotations takes a
// handful of levels. 32 levels keep a crafted section's recursion to a few
// kilobytes of stack even with sanitizer redzones. Deeper nesting fails the
// section.
constexpr int kMaxAnnotationDepth = 32;

void readMarkups(PRCBitReader& r);
void readMarkupLinkedItem(PRCBitReader& r);
void readLeader(PRCBitReader& r);
void readMarkup(PRCBitReader& r);
void readAnnotationEntity(PRCBitReader& r);
void readView(PRCBitReader& r);
void readFilter(PRCBitReader& r);
void readEntityReference(PRCBitReader& r);
void readSceneDisplayParameters(PRCBitReader& r);
void readLight(PRCBitReader& r);
void readCamera(PRCBitReader& r);

}  // namespace prc
