# cmake -DLEDGER=DIR -P reset_ledger.cmake: an empty ledger folder for this run.
file(REMOVE_RECURSE "${LEDGER}")
file(MAKE_DIRECTORY "${LEDGER}")
