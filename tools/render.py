#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Renders the warped part of a job coloured by its displacement magnitude, off-screen, to a PNG.

    xvfb-run -a python3 tools/render.py JOB_FOLDER/job_1_warp_color/3D/3dmodel.model picture.png

It reads the model of the coloured 3MF package that warpforge writes (its vertices, triangles and
the colour of each corner from the package's own colour group), so the picture shows the very
colour scale of the package: blue for the smallest displacement, through cyan, green and yellow,
to red for the largest. VTK (Debian's python3-vtk9) draws it; xvfb-run gives it a display.
"""
import sys
import xml.etree.ElementTree as ET

import vtk

CORE = "{http://schemas.microsoft.com/3dmanufacturing/core/2015/02}"
MATERIAL = "{http://schemas.microsoft.com/3dmanufacturing/material/2015/02}"


def readmodel(path):
    root = ET.parse(path).getroot()
    colours = {}
    for group in root.iter(MATERIAL + "colorgroup"):
        colours[group.get("id")] = [c.get("color") for c in group.iter(MATERIAL + "color")]
    points, rgb, cells = vtk.vtkPoints(), vtk.vtkUnsignedCharArray(), vtk.vtkCellArray()
    rgb.SetNumberOfComponents(3)
    rgb.SetName("displacement")
    for mesh in root.iter(CORE + "mesh"):
        vertices = [(float(v.get("x")), float(v.get("y")), float(v.get("z"))) for v in mesh.iter(CORE + "vertex")]
        base = points.GetNumberOfPoints()
        for x, y, z in vertices:
            points.InsertNextPoint(x, y, z)
        corner = [None] * len(vertices)
        for t in mesh.iter(CORE + "triangle"):
            ids = [int(t.get(k)) for k in ("v1", "v2", "v3")]
            cells.InsertNextCell(3, [base + i for i in ids])
            group = colours.get(t.get("pid"), [])
            for i, key in zip(ids, ("p1", "p2", "p3")):
                if t.get(key) is not None and corner[i] is None:
                    corner[i] = group[int(t.get(key))]
        for c in corner:
            c = c or "#808080"
            rgb.InsertNextTuple3(int(c[1:3], 16), int(c[3:5], 16), int(c[5:7], 16))
    poly = vtk.vtkPolyData()
    poly.SetPoints(points)
    poly.SetPolys(cells)
    poly.GetPointData().SetScalars(rgb)
    return poly


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: render.py MODEL.model PICTURE.png")
    poly = readmodel(sys.argv[1])
    mapper = vtk.vtkPolyDataMapper()
    mapper.SetInputData(poly)
    mapper.SetColorModeToDirectScalars()
    actor = vtk.vtkActor()
    actor.SetMapper(mapper)
    actor.GetProperty().SetInterpolationToGouraud()
    renderer = vtk.vtkRenderer()
    renderer.AddActor(actor)
    renderer.SetBackground(1, 1, 1)
    window = vtk.vtkRenderWindow()
    window.SetOffScreenRendering(1)
    window.AddRenderer(renderer)
    window.SetSize(900, 700)
    camera = renderer.GetActiveCamera()
    camera.SetViewUp(0, 0, 1)
    camera.SetPosition(1, -1.6, 0.9)
    camera.SetFocalPoint(0, 0, 0)
    renderer.ResetCamera()
    camera.Zoom(1.15)
    window.Render()
    grab = vtk.vtkWindowToImageFilter()
    grab.SetInput(window)
    grab.Update()
    writer = vtk.vtkPNGWriter()
    writer.SetFileName(sys.argv[2])
    writer.SetInputConnection(grab.GetOutputPort())
    writer.Write()


if __name__ == "__main__":
    main()
