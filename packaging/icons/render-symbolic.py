#!/usr/bin/env python3
"""Renders the symbolic mark to the PNGs the application draws it from, so that drawing it needs
no SVG support in Qt. Run after changing brindlemark-symbolic.svg. It uses librsvg and cairo,
the renderer GNOME's panels draw the installed SVG with, through ctypes: nothing to install on a
GNOME desktop."""
import ctypes
import pathlib

rsvg = ctypes.CDLL("librsvg-2.so.2")
cairo = ctypes.CDLL("libcairo.so.2")
rsvg.rsvg_handle_new_from_file.restype = ctypes.c_void_p
rsvg.rsvg_handle_new_from_file.argtypes = [ctypes.c_char_p, ctypes.c_void_p]
rsvg.rsvg_handle_render_cairo.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
cairo.cairo_image_surface_create.restype = ctypes.c_void_p
cairo.cairo_create.restype = ctypes.c_void_p
cairo.cairo_create.argtypes = [ctypes.c_void_p]
cairo.cairo_scale.argtypes = [ctypes.c_void_p, ctypes.c_double, ctypes.c_double]
cairo.cairo_surface_write_to_png.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
cairo.cairo_destroy.argtypes = [ctypes.c_void_p]
cairo.cairo_surface_destroy.argtypes = [ctypes.c_void_p]

here = pathlib.Path(__file__).resolve().parent
handle = rsvg.rsvg_handle_new_from_file(str(here / "brindlemark-symbolic.svg").encode(), None)
if not handle:
    raise SystemExit("brindlemark-symbolic.svg: not readable")
(here / "symbolic").mkdir(exist_ok=True)
for size in (16, 22, 24, 32, 48, 64, 96, 128):
    surface = cairo.cairo_image_surface_create(0, size, size)  # CAIRO_FORMAT_ARGB32
    context = cairo.cairo_create(surface)
    cairo.cairo_scale(context, size / 16, size / 16)  # the mark is drawn on a 16 px grid
    if not rsvg.rsvg_handle_render_cairo(handle, context):
        raise SystemExit("brindlemark-symbolic.svg: cannot render")
    cairo.cairo_surface_write_to_png(surface, str(here / "symbolic" / f"brindlemark-symbolic-{size}.png").encode())
    cairo.cairo_destroy(context)
    cairo.cairo_surface_destroy(surface)
