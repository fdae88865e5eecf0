# The API reference and the developer console, both from registry/commands.json:
#   korvex_api_spec   build/docs/api/korvex-api.openapi.json (OpenAPI 3.1, by docs/api/openapi.py)
#   korvex_console    build/console/: the console's page, style and script, and commands.json
#   korvex_api_html   build/docs/api/korvex-api.html (not built by default: "make docs"; needs npm)
find_program(KORVEX_PYTHON3 python3)
set(KORVEX_COMMANDS_JSON ${CMAKE_SOURCE_DIR}/registry/commands.json)
set(KORVEX_API_SPEC ${CMAKE_BINARY_DIR}/docs/api/korvex-api.openapi.json)
set(KORVEX_API_HTML ${CMAKE_BINARY_DIR}/docs/api/korvex-api.html)
set(KORVEX_CONSOLE_DIR ${CMAKE_BINARY_DIR}/console)

if(KORVEX_PYTHON3)
  add_custom_command(OUTPUT ${KORVEX_API_SPEC}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/docs/api
    COMMAND ${KORVEX_PYTHON3} ${CMAKE_SOURCE_DIR}/docs/api/openapi.py ${KORVEX_COMMANDS_JSON}
            ${PROJECT_VERSION} ${KORVEX_API_SPEC}
    DEPENDS ${KORVEX_COMMANDS_JSON} ${CMAKE_SOURCE_DIR}/docs/api/openapi.py
    COMMENT "Writing the OpenAPI document of the web API" VERBATIM)
  add_custom_target(korvex_api_spec ALL DEPENDS ${KORVEX_API_SPEC})

  add_custom_command(OUTPUT ${KORVEX_API_HTML}
    COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/api-docs.sh html ${KORVEX_API_SPEC} ${KORVEX_API_HTML}
    DEPENDS ${KORVEX_API_SPEC} ${CMAKE_SOURCE_DIR}/scripts/api-docs.sh ${CMAKE_SOURCE_DIR}/docs/api/inline_redoc.py
            ${CMAKE_SOURCE_DIR}/docs/api/package-lock.json
    COMMENT "Rendering the HTML reference of the web API" VERBATIM)
  add_custom_target(korvex_api_html DEPENDS ${KORVEX_API_HTML})
endif()

file(GLOB KORVEX_CONSOLE_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/console/*.html
     ${CMAKE_SOURCE_DIR}/console/*.css ${CMAKE_SOURCE_DIR}/console/*.js ${CMAKE_SOURCE_DIR}/console/*.svg)
set(KORVEX_CONSOLE_OUTPUTS ${KORVEX_CONSOLE_DIR}/commands.json)
foreach(source IN LISTS KORVEX_CONSOLE_SOURCES)
  get_filename_component(name ${source} NAME)
  list(APPEND KORVEX_CONSOLE_OUTPUTS ${KORVEX_CONSOLE_DIR}/${name})
endforeach()
add_custom_command(OUTPUT ${KORVEX_CONSOLE_OUTPUTS}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${KORVEX_CONSOLE_DIR}
  COMMAND ${CMAKE_COMMAND} -E copy ${KORVEX_CONSOLE_SOURCES} ${KORVEX_COMMANDS_JSON} ${KORVEX_CONSOLE_DIR}
  DEPENDS ${KORVEX_CONSOLE_SOURCES} ${KORVEX_COMMANDS_JSON}
  COMMENT "Copying the developer console and its command metadata" VERBATIM)
add_custom_target(korvex_console ALL DEPENDS ${KORVEX_CONSOLE_OUTPUTS})
