// kelvane.load_image: a frame of any file the library reads, as a
// read-only view of its pixels.
#include "image2d.h"
#include "module.h"
#include "piv_error.h"

namespace kelvane_py {

void RegisterImages(py::module_& m) {
    m.def(
        "load_image",
        [](const py::object& where, int page) {
            const std::string path = PathOf(where);
            RequireFile(path, "image");
            auto image = std::make_shared<Image2D>();
            image->error().setErrorHandling(PIVerror::ERROR_QUIET);
            bool ok;
            {
                py::gil_scoped_release release;
                ok = image->load(path.c_str(), page) && !image->isNull();
            }
            if (!ok)
                RaiseFileError(
                    image->error().getLastErrorCode() ? image->error().getLastErrorCode()
                                                      : PIVerror::INVALID_FILE_CONTENT,
                    "cannot read image " + path + ": " + eval_tool::Reason(image->error()), path);
            const ssize_t rows = ssize_t(image->height()), cols = ssize_t(image->width()),
                          line = ssize_t(image->bytesPerPlane() / image->height());
            switch (image->type()) {
                case IMAGE_UINT8:
                    return View<uint8_t>(image, image->bits(), rows, cols, line, 1);
                case IMAGE_UINT16:
                    return View<uint16_t>(image, image->bits(), rows, cols, line, 2);
                case IMAGE_UINT32:
                    return View<uint32_t>(image, image->bits(), rows, cols, line, 4);
                case IMAGE_FLOAT:
                    return View<float>(image, image->bits(), rows, cols, line, 4);
                default:
                    RaiseError(PIVerror::IMAGE_TYPE_UNSUPPORTED,
                               "cannot read image " + path + ": its pixel type " +
                                   std::to_string(int(image->type())) + " has no numpy view");
            }
        },
        py::arg("path"), py::arg("page") = 0,
        "The frame of an image file (TIFF, BMP, PGM, PCO, LaVision) as a read-only array, rows "
        "by columns, viewing the pixels the library loaded.");
}

}  // namespace kelvane_py
