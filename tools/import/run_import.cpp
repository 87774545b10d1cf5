#include "tools/import/run_import.h"

#include <filesystem>

#include "tools/import/colmap_workspace.h"
#include "tools/import/import_error.h"
#include "tools/import/log_sequence.h"
#include "tools/import/tum_sequence.h"

namespace importer {

SourceScene read_source(const ImportOptions& o) {
  if (!std::filesystem::is_directory(o.source)) fail(o.source, "no such folder");
  const Intrinsics k = o.intrinsics.value_or(kDefaultIntrinsics);
  SourceScene scene;
  switch (o.layout) {
    case SourceLayout::colmap: return read_colmap_workspace(o.source, o.depth_maps);
    case SourceLayout::tum: scene = read_tum_sequence(o.source, trajectory_of(o), k, depth_scale_of(o)); break;
    case SourceLayout::log: scene = read_log_sequence(o.source, trajectory_of(o), k, depth_scale_of(o)); break;
  }
  scene.default_intrinsics = !o.intrinsics;
  return scene;
}

ImportSummary run_import(const ImportOptions& o, std::ostream& out) {
  const SourceScene scene = read_source(o);
  out << "Importing " << scene.views.size() << " views of " << scene.description;
  if (o.settings.every > 1) out << ", keeping one in " << o.settings.every;
  out << std::endl;
  const ImportSummary summary = write_imported_views(scene, o.settings, out);
  out << format_import_summary(scene, summary);
  return summary;
}

}  // namespace importer
