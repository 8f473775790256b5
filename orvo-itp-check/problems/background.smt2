; Under --unmentioned=background, K (no query names it) is in every
; partition: its symbol m is shared by every cut and K is a premise of every
; step.
(set-logic QF_LIA)
(declare-fun m () Int)
(declare-fun x () Int)
(declare-fun y () Int)
(assert (! (= m 7) :named K))
(assert (! (= x m) :named A))
(assert (! (= y (+ x 1)) :named B))
(assert (! (< y 8) :named C))
(check-sat)
; 1: right, through m
(get-interpolants A B C)
; 2: right only with K as a premise: x = 7 follows from A and K
(get-interpolants A B C)
; 3: B's step claims more than A, B and K give
(get-interpolants A B C)
