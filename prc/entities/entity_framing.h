#pragma once
// The common framing of PRC entities: type codes, attributes, content bases
// and the two reference forms.

#include <cstdint>
#include <string>

#include "prc/io/bit_reader.h"

namespace prc {

// Type codes that the readers check or branch on.
enum TypeCode : uint32_t {
    kSurfacePlane = 86,
    k3DTess = 172,
    k3DTessCompressed = 173,
    kTessFace = 174,
    k3DWireTess = 175,
    kMarkupTess = 176,
    kAttribute = 201,
    kCartesianTransformation = 202,
    kEntityReference = 203,
    kMarkupLinkedItem = 204,
    kReferenceOnPRCBase = 205,
    kReferenceOnTopology = 206,
    kGeneralTransformation = 207,
    kRiBrepModel = 232,
    kRiCurve = 233,
    kRiDirection = 234,
    kRiPlane = 235,
    kRiPointSet = 236,
    kRiPolyBrepModel = 237,
    kRiPolyWire = 238,
    kRiSet = 239,
    kRiCoordinateSystem = 240,
    kModelFile = 301,
    kFileStructure = 302,
    kFileStructureGlobals = 303,
    kFileStructureTree = 304,
    kFileStructureTessellation = 305,
    kProductOccurrence = 310,
    kPartDefinition = 311,
    kFilter = 320,
    kView = 501,
    kMarkup = 502,
    kLeader = 503,
    kAnnotationItem = 504,
    kAnnotationSet = 505,
    kAnnotationReference = 506,
    kStyle = 701,
    kMaterialGeneric = 702,
    kPicture = 703,
    kTextureApplication = 711,
    kTextureDefinition = 712,
    kTextureTransformation = 713,
    kLinePattern = 721,
    kLightAmbient = 731,
    kLightPoint = 732,
    kLightDirectional = 733,
    kLightSpot = 734,
    kSceneDisplayParameters = 741,
    kCamera = 742,
};

// Indices are stored as index + 1, with 0 for none.
inline int64_t storedIndex(uint32_t value) { return value == 0 ? -1 : int64_t(value) - 1; }

void readExpectedType(PRCBitReader& r, uint32_t expected, const char* label);
void readAttributes(PRCBitReader& r);
void readSingleAttribute(PRCBitReader& r);
std::string readContentPRCBase(PRCBitReader& r, uint32_t type);
void readEmptyContentPRCBase(PRCBitReader& r);
void readReferenceOnPRCBase(PRCBitReader& r, const char* label);
void readReferenceData(PRCBitReader& r);

}  // namespace prc
