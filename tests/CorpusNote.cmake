# Run by ctest after the tests (CTestCustom.cmake): one line when the tests that read the real
# Photos databases were skipped, saying how to run them.
if(NOT IS_DIRECTORY "${CORPUS}")
  message("Skipped the tests that read the real Photos databases: there are none at ${CORPUS}. "
          "To run them, configure with cmake -DOMBRELO_CORPUS_DIR=<folder of the photos-db corpus>.")
endif()
