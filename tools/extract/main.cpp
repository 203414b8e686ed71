#include "tools/extract/extract_app.h"

int main(int argc, char** argv) { return extract::runExtract(argc, argv); }
