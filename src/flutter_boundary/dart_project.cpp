#include "flutter_boundary/dart_project.h"

namespace flutter {

DartProject DartProject::InFolder(std::wstring_view folder) {
  DartProject project;
  project.assets_path.append(folder).append(L"\\flutter_assets");
  project.icu_data_path.append(folder).append(L"\\icudtl.dat");
  project.aot_library_path.append(folder).append(L"\\app.so");
  return project;
}

}  // namespace flutter
