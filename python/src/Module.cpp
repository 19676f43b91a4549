// The compiled part of the `qorimg` Python package.
#include "Call.h"

PYBIND11_MODULE(_qorimg, m) {
  m.doc() = "qorimg: the image-processing engine for astronomical frames, over numpy.";
  qorpy::RegisterExceptions(m);
  qorpy::BindImage(m);
  qorpy::BindTone(m);
  qorpy::BindGeometry(m);
  qorpy::BindFilter(m);
  qorpy::BindCalibrate(m);
  qorpy::BindDevelop(m);
  qorpy::BindComposite(m);
  qorpy::BindRestore(m);
#ifdef QORIMG_PY_IO
  qorpy::BindIo(m);
#endif
#ifdef QORIMG_PY_WORKFLOW
  qorpy::BindWorkflow(m);
#endif
}
