; Under --unmentioned=error, K is live and the query leaves it out.
(set-logic QF_LIA)
(declare-fun k () Int)
(assert (! (= k 1) :named K))
(assert (! (> k 0) :named A))
(assert (! (< k 0) :named B))
(get-interpolants A B)
