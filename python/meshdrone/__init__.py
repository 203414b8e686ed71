"""PRC models, the 3D format of PDF 3D annotations, decoded into NumPy triangle meshes.

    import meshdrone
    model = meshdrone.decode("part.prc")          # or bytes of a PRC stream
    model.positions, model.triangles, model.colors, model.parts
    for place, model in meshdrone.models_in_pdf("assembly.pdf"):
        print(place, model.to_trimesh().bounds)

The decoder is the meshdrone worker's own, reached through libmeshdrone's C
interface: what the worker refuses raises DecodeError with the worker's result
and message. Decoding releases the interpreter lock, so threads decode at once.
"""

from ._meshdrone import (
    DecodeError,
    Model,
    Part,
    PdfModels,
    Place,
    Result,
    __version__,
    decode,
    models_in_pdf,
)

__all__ = ["DecodeError", "Model", "Part", "PdfModels", "Place", "Result", "decode", "models_in_pdf"]
