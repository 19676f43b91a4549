// FITS and PNG files through qorimg::io; its IoError becomes OSError
// (FileNotFoundError, FileExistsError where the kind says so).
#include "Call.h"
#include "io/Fits.h"
#include "io/Png.h"

namespace qorpy {

namespace io = qorimg::io;

namespace {

io::FitsHeader HeaderFrom(const py::object &header) {
  io::FitsHeader out;
  if (header.is_none()) return out;
  for (const auto &[key, value] : header.cast<py::dict>()) {
    const auto k = key.cast<std::string>();
    if (py::isinstance<py::bool_>(value) || py::isinstance<py::int_>(value))
      out.Set(k, value.cast<long long>());
    else if (py::isinstance<py::float_>(value))
      out.Set(k, value.cast<double>());
    else
      out.Set(k, py::str(value).cast<std::string>());
  }
  return out;
}

py::dict InfoDict(const io::FitsInfo &info) {
  py::dict d;
  d["path"] = info.path, d["width"] = info.width, d["height"] = info.height, d["planes"] = info.planes;
  d["bitpix"] = info.bitpix, d["bzero"] = info.bzero, d["bscale"] = info.bscale;
  d["top_down"] = info.rowOrder == io::RowOrder::TopDown;
  d["cards"] = info.header.Records();
  d["exposure"] = info.header.Number("EXPTIME").value_or(info.header.Number("EXPOSURE").value_or(0.0));
  return d;
}

void RegisterIoErrors() {
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const io::IoError &e) {
      PyObject *type = e.kind() == io::IoError::NotFound  ? PyExc_FileNotFoundError
                       : e.kind() == io::IoError::Exists ? PyExc_FileExistsError
                                                          : PyExc_OSError;
      PyErr_SetString(type, e.what());
    }
  });
}

}  // namespace

void BindIo(py::module_ &m) {
  RegisterIoErrors();
  m.def("read_fits", [](const py::object &path, const std::string &store, std::optional<std::size_t> memory) {
    const std::string p = PathOf(path);
    auto manager = MakeManager(store, memory);
    py::gil_scoped_release release;
    return ImagePtr(io::ReadFits(p, manager));
  }, py::arg("path"), py::arg("store") = "whole-plane", py::arg("memory") = py::none(),
        "The first image of a FITS file as float ADU, row 0 at the top.");
  m.def("read_fits_info", [](const py::object &path) { return InfoDict(io::ReadFitsInfo(PathOf(path))); },
        py::arg("path"), "Size, sample format, row order and header cards of a FITS file.");
  m.def("read_fits_rows", [](const py::object &path, int top, int rows) {
    const auto info = io::ReadFitsInfo(PathOf(path));
    if (top < 0 || rows < 1 || top + rows > info.height) throw py::value_error("rows outside the frame");
    py::array_t<float> out({py::ssize_t(info.planes), py::ssize_t(rows), py::ssize_t(info.width)});
    float *dst = out.mutable_data();
    py::gil_scoped_release release;
    io::ReadFitsRows(info, top, rows, dst);
    return out;
  }, py::arg("path"), py::arg("top"), py::arg("rows"), "Rows top..top+rows-1 (planes, rows, width), read alone.");
  m.def("write_fits", [](const py::object &path, const ImagePtr &image, const py::object &header,
                         const std::string &format, bool overwrite) {
    RequireImage(image, "image");
    if (format != "float32" && format != "uint16") throw py::value_error("format must be \"float32\" or \"uint16\"");
    const auto cards = HeaderFrom(header);
    io::WriteOptions o;
    o.format = format == "uint16" ? io::SampleFormat::UInt16 : io::SampleFormat::Float32;
    o.overwrite = overwrite;
    const std::string p = PathOf(path);
    py::gil_scoped_release release;
    io::WriteFits(p, *image, cards, o);
  }, py::arg("path"), py::arg("image"), py::arg("header") = py::none(), py::arg("format") = "float32",
        py::arg("overwrite") = false, "header: a dict of keyword -> value.");
  m.def("write_png", [](const py::object &path, const ImagePtr &image, int bits, std::optional<double> black,
                        std::optional<double> white, bool overwrite) {
    RequireImage(image, "image");
    if (bits != 8 && bits != 16) throw py::value_error("bits must be 8 or 16");
    const std::string p = PathOf(path);
    const double b = black.value_or(image->GetLevelMin(0)), w = white.value_or(image->GetLevelMax(0));
    py::gil_scoped_release release;
    io::WritePng(p, *image, bits, b, w, overwrite);
  }, py::arg("path"), py::arg("image"), py::arg("bits") = 16, py::arg("black") = py::none(),
        py::arg("white") = py::none(), py::arg("overwrite") = false,
        "Samples mapped black -> 0, white -> full scale (default: plane 0's levels).");

}

}  // namespace qorpy
