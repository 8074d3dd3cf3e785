# Keeps a long log readable: a line seen before is not shown again (the
# fuzzer's target prints the same directory-open error thousands of times),
# and the end lists how often each repeated line came. From the first
# sanitizer or fuzzer error on, everything is shown as it comes, so a
# finding's report is never shortened.
verbatim || /ERROR: |==[0-9]+==ERROR|^SUMMARY: |deadly signal|^MS: / {
  verbatim = 1
  print
  fflush()
  next
}
{
  seen[$0]++
  if (seen[$0] == 1) {
    print
    fflush()
  } else if (seen[$0] == 2) {
    repeated[++count] = $0
  }
}
END {
  for (i = 1; i <= count; i++) {
    printf("(shown once above, came %d times: %s)\n", seen[repeated[i]], repeated[i])
  }
}
