function err = tg_expect_error (fn, id, message)
  ## ERR = tg_expect_error (FN, ID [, MESSAGE]): calls FN and fails unless it
  ## raises an error with identifier ID (and, when given, exactly MESSAGE).
  try
    fn ();
  catch err
    if (! strcmp (err.identifier, id))
      error ("tiffgate:test", "expected error %s, got '%s': %s", id, err.identifier, err.message);
    endif
    if (nargin > 2 && ! strcmp (err.message, message))
      error ("tiffgate:test", "error %s: expected message '%s', got '%s'", id, message, err.message);
    endif
    return;
  end_try_catch
  error ("tiffgate:test", "expected error %s, but the call succeeded", id);
endfunction
