# find_package(tarn): imported targets tarn::Ka (memory, errors, the loader) and tarn::Lumo (arrays; brings tarn::Ka).
include(${CMAKE_CURRENT_LIST_DIR}/tarnTargets.cmake)
