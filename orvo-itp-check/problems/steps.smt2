; A counter that steps by 2 cannot reach 3: faults of the implications.
(set-logic QF_LIA)
(declare-fun x0 () Int)
(declare-fun x1 () Int)
(declare-fun x2 () Int)
(assert (! (= x0 0) :named S0))
(assert (! (= x1 (+ x0 2)) :named S1))
(assert (! (= x2 (+ x1 2)) :named S2))
(assert (! (= x2 3) :named S3))
(check-sat)
; 1: right
(get-interpolants S0 S1 S2 S3)
; 2: S1's step is not inductive (x1 >= 3 does not follow from x0 >= 0)
(get-interpolants S0 S1 S2 S3)
; 3: the first two are swapped: S0's uses x1 and does not follow, S1's uses x0,
; and S2's step then fails
(get-interpolants S0 S1 S2 S3)
; 4: true in the middle, where x1 = 2 is needed: S2's step fails
(get-interpolants S0 S1 S2 S3)
; 5: true at the end: the root's step fails, so S2 (the root's child) is invalid
(get-interpolants S0 S1 S2 S3)
