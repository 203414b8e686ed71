"""The exact decoder through the module: decode(..., exact=True) draws what the worker cannot."""

import pathlib

import pytest

import meshdrone

DATA = pathlib.Path(__file__).resolve().parents[2] / "tests" / "data" / "exact"


def test_exact_surfaces_are_drawn_only_when_asked():
    with pytest.raises(meshdrone.DecodeError) as refused:
        meshdrone.decode(DATA / "torus.prc")
    assert refused.value.outcome == 1
    model = meshdrone.decode((DATA / "torus.prc").read_bytes(), exact=True)
    assert model.exact_report == "tessellated from exact surfaces, chord tolerance 0.002"
    radii = ((model.positions[:, :2] ** 2).sum(axis=1) ** 0.5 - 2) ** 2 + model.positions[:, 2] ** 2
    assert abs(radii ** 0.5 - 0.5).max() < 0.006  # on the torus, within a compression step
    assert meshdrone.decode(DATA.parent / "0a1283e2edd5.prc").exact_report is None
