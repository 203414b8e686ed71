"""The Python module over the C interface: arrays that look into the decoder's
memory and outlive the model object, the worker's answers as exceptions, the
models of a PDF with their places."""

import gc
import pathlib

import numpy as np
import pytest

import meshdrone

DATA = pathlib.Path(__file__).resolve().parents[2] / "tests" / "data"
CUBE = DATA / "0a1283e2edd5.prc"


def test_every_source_gives_the_same_read_only_views_that_outlive_the_model():
    expected = meshdrone.decode(CUBE)
    raw = CUBE.read_bytes()
    for source in (str(CUBE), raw, bytearray(raw), memoryview(raw)):
        model = meshdrone.decode(source)
        for name in ("positions", "triangles", "colors"):
            assert np.array_equal(getattr(model, name), getattr(expected, name))
    views = [meshdrone.decode(raw).positions for _ in range(3)]  # no model object is left
    gc.collect()
    others = [meshdrone.decode(DATA / "18d2868a5ddb.prc") for _ in range(3)]  # would take freed blocks
    assert others and all(np.array_equal(view, expected.positions) for view in views)
    m = expected
    assert (m.positions.dtype, m.triangles.dtype, m.colors.dtype) == (np.float32, np.uint32, np.uint8)
    assert m.positions.shape == m.colors.shape == (len(m.positions), 3) and m.triangles.shape[1] == 3
    assert not m.positions.flags.writeable and not m.positions.flags.owndata


def test_parts_are_named_records_with_parent_range_and_box():
    model = meshdrone.decode(DATA / "gen" / "groups_transforms.prc")
    parts = model.parts
    assert [p.index for p in parts] == list(range(len(parts))) and parts[0].parent is None
    for p in parts:
        assert isinstance(p.name, str) and (p.parent is None or p.parent < p.index)
        assert p.first_triangle + p.triangle_count <= len(model.triangles)
        assert all(lo <= hi for lo, hi in zip(p.box_min, p.box_max))
    assert np.allclose(parts[0].box_min, model.positions.min(axis=0))
    assert np.allclose(parts[0].box_max, model.positions.max(axis=0))


@pytest.mark.parametrize(
    "source, result, outcome, message",
    [
        (b"PRC but nothing else", meshdrone.Result.DECODING_ERROR, 2, None),
        (DATA / "gen" / "lines_only.prc", meshdrone.Result.NO_GEOMETRY, 1, None),
        (b"", meshdrone.Result.EMPTY_INPUT, None, "il flusso /3DD e' vuoto: non c'e' nessun modello da leggere"),
        (DATA / "missing.prc", meshdrone.Result.OPEN_FAILED, None, "impossibile aprire il file temporaneo con i dati PRC"),
    ],
)
def test_failures_carry_the_workers_answer(source, result, outcome, message):
    with pytest.raises(meshdrone.DecodeError) as caught:
        meshdrone.decode(source)
    error = caught.value
    assert (error.result, error.outcome, error.place) == (result, outcome, None)
    assert str(error) == error.message and (message is None or error.message == message)


def test_wrong_argument_type_is_a_type_error():
    with pytest.raises(TypeError):
        meshdrone.decode(42)


def test_models_in_pdf_gives_each_model_with_its_place():
    found = list(meshdrone.models_in_pdf(DATA / "pdf" / "small-part.pdf"))
    assert len(found) == 1
    place, model = found[0]
    assert (place.page, place.annotation) == (1, 1) and str(place).startswith("page 1, 3D annotation 1")
    assert len(model.triangles) > 0
    [(place, model)] = meshdrone.models_in_pdf(str(CUBE))
    assert place.page == 0 and np.array_equal(model.positions, meshdrone.decode(CUBE).positions)
    with pytest.raises(RuntimeError):
        meshdrone.models_in_pdf(DATA / "missing.pdf")


def test_to_trimesh_keeps_every_vertex_with_its_colour():
    trimesh = pytest.importorskip("trimesh")
    model = meshdrone.decode(CUBE)
    mesh = model.to_trimesh()
    assert isinstance(mesh, trimesh.Trimesh)
    assert np.array_equal(mesh.vertices, model.positions) and np.array_equal(mesh.faces, model.triangles)
    assert np.array_equal(mesh.visual.vertex_colors[:, :3], model.colors)
